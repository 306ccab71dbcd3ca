#include <fmt/core.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "execution/Plan.h"
#include "execution/Stage.h"

namespace kv::runtime {
namespace {

/// How a step names an input: the number of its line, or the value itself when it is short.
std::string inputName(const PlanInput& input, const std::vector<int>& lines) {
  if (input.task >= 0) {
    return fmt::format("#{}", lines[static_cast<std::size_t>(input.task)]);
  }
  const kxArray* value = input.value.get();
  const bool isNumber = kxIsNumeric(value) || kxGetClassID(value) == kxLOGICAL_CLASS;
  if (kxIsScalar(value) && isNumber) {
    return fmt::format("{}", kxGetScalar(value));
  }
  if (kxIsScalar(value) && Torvane::String::isString(value)) {
    return fmt::format("\"{}\"", host::toText(value));
  }
  return fmt::format("a {}x{} {}", kxGetM(value), kxGetN(value), kxGetClassName(value));
}

/// A name from a file may hold a line break, and must not add lines to a plan.
std::string onOneLine(const std::string& text) {
  std::string line;
  for (const char c : text) {
    const auto byte = static_cast<unsigned char>(c);
    line += byte < 0x20 ? fmt::format("\\x{:02x}", byte) : std::string(1, c);
  }
  return line;
}

class PlanText {
 public:
  explicit PlanText(const Plan& plan) : plan_(plan), lines_(plan.tasks.size(), 0) {}

  std::string write() {
    writeHeading(fmt::format("Plan: {} {} over the data", plan_.passes,
                             plan_.passes == 1 ? "pass" : "passes"));
    writeClientTasks(0);
    for (int pass = 1; pass <= plan_.passes; ++pass) {
      writeHeading(fmt::format("Pass {}", pass));
      writeFlow(pass);
      writeClientTasks(pass);
    }
    for (std::size_t i = 0; i < plan_.results.size(); ++i) {
      const auto task = static_cast<std::size_t>(plan_.results[i].task);
      addRow(fmt::format("Result {}: #{}", i + 1, lines_[task]), {},
             plan_.tasks[task].spec->origin);
    }
    return align();
  }

 private:
  void writeFlow(int pass) {
    std::vector<int> sinks = plan_.aggregatesOf(pass);
    const std::set<int> keptTasks = keptIn(pass);
    sinks.insert(sinks.end(), keptTasks.begin(), keptTasks.end());
    const std::vector<int> upstream = plan_.upstreamOf(sinks);
    const std::vector<ColumnNeeds> needs = columnNeeds(stepsOf(upstream, keptTasks));
    for (std::size_t i = 0; i < upstream.size(); ++i) {
      const OpSpec& spec = *plan_.tasks[static_cast<std::size_t>(upstream[i])].spec;
      std::string note;
      if (spec.kind == OpKind::Read) {
        note = readNote(spec, needs[i]);
      } else if (spec.kind == OpKind::Aggregate) {
        note = "reduces all rows";
      } else if (keptTasks.contains(upstream[i])) {
        note = "rows are kept";
      }
      writeStep(upstream[i], note);
    }
  }

  /// The tasks of a pass as steps, for the question which columns they ask for.
  std::vector<StageStep> stepsOf(const std::vector<int>& tasks, const std::set<int>& kept) const {
    std::map<int, std::size_t> stepOf;
    std::vector<StageStep> steps;
    for (const int task : tasks) {
      const PlanTask& planned = plan_.tasks[static_cast<std::size_t>(task)];
      stepOf.emplace(task, steps.size());
      StageStep step{planned.spec, {}};
      for (const PlanInput& input : planned.inputs) {
        if (const auto found = stepOf.find(input.task); found != stepOf.end()) {
          step.inputs.push_back(found->second);
        }
      }
      steps.push_back(std::move(step));
    }
    const auto collect = std::make_shared<OpSpec>(OpSpec{.kind = OpKind::Collect});
    for (const int task : kept) {
      steps.push_back({collect, {stepOf.at(task)}});
    }
    return steps;
  }

  static std::string readNote(const OpSpec& read, const ColumnNeeds& needs) {
    const std::size_t all = read.source->schema().size();
    const std::vector<std::string> columns = needs.columnsOf(read.source->schema());
    return fmt::format("{} of {} columns: {}", columns.size(), all, fmt::join(columns, ", "));
  }

  std::set<int> keptIn(int pass) const {
    std::set<int> tasks;
    for (const Plan::Kept& kept : plan_.keptIn(pass)) {
      tasks.insert(kept.task);
    }
    return tasks;
  }

  void writeClientTasks(int pass) {
    for (std::size_t i = 0; i < plan_.tasks.size(); ++i) {
      if (plan_.tasks[i].runsInClient && plan_.tasks[i].pass == pass) {
        writeStep(static_cast<int>(i), "once");
      }
    }
  }

  void writeStep(int index, const std::string& note) {
    const PlanTask& task = plan_.tasks[static_cast<std::size_t>(index)];
    int& line = lines_[static_cast<std::size_t>(index)];
    if (line == 0) {
      line = ++lastLine_;
    }
    std::string inputs;
    for (const PlanInput& input : task.inputs) {
      inputs += (inputs.empty() ? "" : ", ") + inputName(input, lines_);
    }
    addRow(fmt::format("  #{:<3} {}{}", line, task.spec->label,
                       inputs.empty() ? "" : fmt::format("({})", inputs)),
           note, task.spec->origin);
  }

  void writeHeading(const std::string& text) { addRow(text, {}, {}); }

  void addRow(const std::string& step, const std::string& note, const std::string& origin) {
    rows_.push_back({onOneLine(step), onOneLine(note), onOneLine(origin)});
  }

  /// The rows, with notes and origins one below the other.
  std::string align() const {
    std::size_t stepWidth = 0;
    std::size_t noteWidth = 0;
    for (const Row& row : rows_) {
      stepWidth = std::max(stepWidth, row.step.size());
      noteWidth = std::max(noteWidth, row.note.size());
    }
    std::string text;
    for (const Row& row : rows_) {
      text +=
          fmt::format("{:<{}}  {:<{}}  {}", row.step, stepWidth, row.note, noteWidth, row.origin);
      text.erase(text.find_last_not_of(' ') + 1);
      text += '\n';
    }
    return text;
  }

  struct Row {
    std::string step;
    std::string note;
    std::string origin;
  };

  const Plan& plan_;
  std::vector<int> lines_;
  int lastLine_ = 0;
  std::vector<Row> rows_;
};

}  // namespace

std::string describePlan(const Plan& plan) { return PlanText(plan).write(); }

}  // namespace kv::runtime

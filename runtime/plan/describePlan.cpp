#include <fmt/core.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "engine/Stage.h"
#include "plan/Plan.h"
#include "plan/Schedule.h"
#include "plan/condition.h"
#include "plan/planSteps.h"
#include "values/columnValues.h"

namespace kv::runtime {

namespace {

/// Longer texts aren't shown as inputs, and longer rows not lined up with others: many steps may
/// share one text, and each row is as wide as the widest.
constexpr std::size_t kShortText = 40;
constexpr std::size_t kLinedUp = 120;

/// A pass lists up to as many steps that passes before have listed.
constexpr std::size_t kListedAgain = 3;

bool isShortText(const kxArray* value) {
  const auto text = Torvane::String::isString(value) && kxIsScalar(value)
                        ? Torvane::String::getString(value, 0)
                        : std::nullopt;
  return text && text->size() <= kShortText;
}

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
  if (isShortText(value)) {
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

/// A branch of a choice, inside of those of others.
struct BranchOf {
  int choice = -1;
  bool isTrue = false;
  int outer = -1;  ///< index of the branch that this one is in; -1: none
  int depth = 0;
};

/// Which tasks are needed only if conditions that aren't known yet turn out in a certain way.
class Conditions {
 public:
  Conditions(const Plan& plan, const Schedule& schedule) : ofTask_(plan.tasks.size(), kUnused) {
    for (const PlanResult& result : plan.results) {
      use(result.task, kAlways);
    }
    for (int task = static_cast<int>(plan.tasks.size()); task-- > 0;) {
      if (ofTask_[static_cast<std::size_t>(task)] == kUnused) {
        continue;
      }
      const PlanTask& planned = plan.task(task);
      const int own = ofTask_[static_cast<std::size_t>(task)];
      const bool isOpen = planned.spec->isChoice && schedule.branchOf(task) == Branch::Both;
      for (const PlanInput& input : planned.inputs) {
        const auto number = static_cast<int>(&input - planned.inputs.data());
        if (input.task >= 0) {
          use(input.task, isOpen && number > 0 ? branch(task, number == 1, own) : own);
        }
      }
    }
  }

  /// The innermost branch that a task is part of; none for one that always runs.
  const BranchOf* of(int task) const {
    const int found = ofTask_[static_cast<std::size_t>(task)];
    return found >= 0 ? &branches_[static_cast<std::size_t>(found)] : nullptr;
  }

 private:
  static constexpr int kAlways = -1;
  static constexpr int kUnused = -2;

  int branch(int choice, bool isTrue, int outer) {
    const int depth = outer < 0 ? 0 : branches_[static_cast<std::size_t>(outer)].depth + 1;
    branches_.push_back({choice, isTrue, outer, depth});
    return static_cast<int>(branches_.size()) - 1;
  }

  void use(int task, int branch) {
    int& known = ofTask_[static_cast<std::size_t>(task)];
    known = known == kUnused ? branch : common(known, branch);
  }

  /// The innermost branch that two are both in.
  int common(int a, int b) const {
    if (a < 0 || b < 0) {
      return kAlways;
    }
    const auto depth = [this](int i) {
      return i < 0 ? -1 : branches_[static_cast<std::size_t>(i)].depth;
    };
    while (a != b) {
      int& deeper = depth(a) >= depth(b) ? a : b;
      deeper = branches_[static_cast<std::size_t>(deeper)].outer;
    }
    return a;
  }

  std::vector<int> ofTask_;
  std::vector<BranchOf> branches_;
};

class PlanText {
 public:
  explicit PlanText(const Plan& plan)
      : plan_(plan), schedule_(plan), lines_(plan.tasks.size(), 0) {}

  std::string write() {
    int passes = 0;
    while (const std::optional<Round> round = schedule_.next()) {
      if (!round->clientTasks.empty()) {
        writeClientTasks(round->clientTasks);
      } else if (round->readsData) {
        writeHeading(fmt::format("Pass {}", ++passes));
        writePasses(round->passes);
      } else {
        writeHeading("In memory");
        writePasses(round->passes);
      }
    }
    writeConditions();
    for (std::size_t i = 0; i < plan_.results.size(); ++i) {
      const auto task = static_cast<std::size_t>(plan_.results[i].task);
      rows_.push_back(
          {fmt::format("Result {}: #{}", i + 1, lines_[task]), {}, plan_.tasks[task].spec->origin});
    }
    const bool isOpen =
        std::ranges::any_of(rows_, [](const Row& row) { return row.isConditional; });
    return fmt::format("Plan: {}{} {} over the data\n", isOpen ? "at most " : "", passes,
                       passes == 1 ? "pass" : "passes") +
           align();
  }

 private:
  void writeClientTasks(const std::vector<int>& tasks) {
    for (const int index : tasks) {
      const PlanTask& task = plan_.task(index);
      const bool isOpen = task.spec->isChoice && schedule_.branchOf(index) == Branch::Unknown;
      if (isOpen) {
        schedule_.setBranch(index, knownBranch(task));
      } else {
        schedule_.setDone(index);
        writeStep(index, "once");
      }
    }
  }

  /// The branch that a condition takes that is there already.
  static Branch knownBranch(const PlanTask& choice) {
    const PlanInput& condition = choice.inputs.at(0);
    if (condition.task >= 0) {
      return Branch::Both;
    }
    const Column value = toColumn(condition.value.get());
    const bool isLogical = value.type() == ElementType::Logical && value.rows() == 1;
    return !isLogical ? Branch::Both : isConditionTrue(value) ? Branch::First : Branch::Second;
  }

  void writePasses(const std::vector<std::vector<PassSink>>& passes) {
    for (const std::vector<PassSink>& sinks : passes) {
      writePass(sinks);
      for (const PassSink& sink : sinks) {
        if (sink.isAggregate) {
          schedule_.setDone(sink.task);
        } else {
          schedule_.setKept(sink.task, sink.output);
        }
      }
    }
  }

  void writePass(const std::vector<PassSink>& sinks) {
    std::set<int> kept;
    for (const PassSink& sink : sinks) {
      if (!sink.isAggregate) {
        kept.insert(sink.task);
      }
    }
    const std::vector<int> upstream = schedule_.upstreamOf(sinks);
    const std::vector<ColumnNeeds> needs = needsOf(upstream, sinks);
    const std::set<int> leftOut = repeatedSteps(upstream, kept);
    for (std::size_t i = 0; i < upstream.size(); ++i) {
      if (leftOut.contains(upstream[i])) {
        if (upstream[i] == *leftOut.begin()) {
          writeHeading(fmt::format("  and {} steps from above again", leftOut.size()));
        }
        continue;
      }
      const OpSpec& spec = *plan_.task(upstream[i]).spec;
      std::string note;
      if (kept.contains(upstream[i]) && spec.source() == nullptr) {
        note = makeCollect()->planNote({});
      } else if (spec.op != nullptr) {
        note = spec.op->planNote(needs[i]);
      }
      writeStep(upstream[i], std::move(note));
    }
  }

  /// The steps between reading and results that a pass repeats, if they are more than a few: each
  /// pass over a long chain of operations runs the steps of all passes before.
  std::set<int> repeatedSteps(const std::vector<int>& tasks, const std::set<int>& kept) const {
    std::set<int> repeated;
    for (const int task : tasks) {
      const OpSpec& spec = *plan_.task(task).spec;
      const bool isEnd = spec.source() != nullptr || spec.endsRows() || kept.contains(task);
      if (!isEnd && lines_[static_cast<std::size_t>(task)] > 0) {
        repeated.insert(task);
      }
    }
    return repeated.size() > kListedAgain ? repeated : std::set<int>{};
  }

  /// What the tasks of a pass are asked for.
  std::vector<ColumnNeeds> needsOf(const std::vector<int>& tasks,
                                   const std::vector<PassSink>& sinks) const {
    std::vector<Step> steps = stepsOf(plan_, tasks, schedule_);
    for (const PassSink& sink : sinks) {
      if (!sink.isAggregate) {
        const auto step = std::ranges::lower_bound(tasks, sink.task) - tasks.begin();
        steps.push_back(
            {makeCollect(), {{.index = static_cast<std::size_t>(step), .output = sink.output}}});
      }
    }
    return columnNeeds(steps);
  }

  void writeStep(int index, std::string note) {
    const PlanTask& task = plan_.task(index);
    int& line = lines_[static_cast<std::size_t>(index)];
    if (line == 0) {
      line = ++lastLine_;
    }
    std::string inputs;
    for (const PlanInput& input : task.inputs) {
      inputs += (inputs.empty() ? "" : ", ") + inputName(input, lines_);
    }
    rows_.push_back({fmt::format("  #{:<3} {}{}", line, task.spec->label,
                                 inputs.empty() ? "" : fmt::format("({})", inputs)),
                     std::move(note), task.spec->origin, index});
  }

  /// Adds to the steps of a branch what it depends on.
  void writeConditions() {
    const Conditions conditions(plan_, schedule_);
    for (Row& row : rows_) {
      const BranchOf* branch = row.task >= 0 ? conditions.of(row.task) : nullptr;
      if (branch != nullptr) {
        const PlanInput& condition = plan_.task(branch->choice).inputs[0];
        row.note += fmt::format("{}if {} is {}", row.note.empty() ? "" : ", ",
                                inputName(condition, lines_), branch->isTrue);
        row.isConditional = true;
      }
    }
  }

  void writeHeading(std::string text) { rows_.push_back({std::move(text), {}, {}}); }

  /// The rows, with notes and origins one below the other.
  std::string align() {
    std::size_t stepWidth = 0;
    std::size_t noteWidth = 0;
    for (Row& row : rows_) {
      row.step = onOneLine(row.step);
      row.note = onOneLine(row.note);
      row.origin = onOneLine(row.origin);
      stepWidth = std::max(stepWidth, std::min(row.step.size(), kLinedUp));
      noteWidth = std::max(noteWidth, std::min(row.note.size(), kLinedUp));
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
    int task = -1;  ///< of a step
    bool isConditional = false;
  };

  const Plan& plan_;
  Schedule schedule_;
  std::vector<int> lines_;
  int lastLine_ = 0;
  std::vector<Row> rows_;
};

}  // namespace

std::string describePlan(const Plan& plan) { return PlanText(plan).write(); }

}  // namespace kv::runtime

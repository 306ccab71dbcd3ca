#include <fmt/core.h>

#include <iterator>
#include <set>
#include <string>

#include "execution/Plan.h"

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

class PlanText {
 public:
  explicit PlanText(const Plan& plan) : plan_(plan), lines_(plan.tasks.size(), 0) {}

  std::string write() {
    append("Plan: {} {} over the data\n", plan_.passes, plan_.passes == 1 ? "pass" : "passes");
    writeClientTasks(0);
    for (int pass = 1; pass <= plan_.passes; ++pass) {
      append("Pass {}\n", pass);
      writeFlow(pass);
      writeClientTasks(pass);
    }
    for (std::size_t i = 0; i < plan_.results.size(); ++i) {
      append("Result {}: #{}\n", i + 1, lines_[static_cast<std::size_t>(plan_.results[i].task)]);
    }
    return std::move(text_);
  }

 private:
  template <class... Arguments>
  void append(fmt::format_string<Arguments...> format, Arguments&&... arguments) {
    fmt::format_to(std::back_inserter(text_), format, std::forward<Arguments>(arguments)...);
  }

  void writeFlow(int pass) {
    std::vector<int> sinks = plan_.aggregatesOf(pass);
    for (const Plan::Kept& kept : plan_.keptIn(pass)) {
      sinks.push_back(kept.task);
    }
    const std::set<int> keptTasks = keptIn(pass);
    for (const int task : plan_.upstreamOf(sinks)) {
      const OpSpec& spec = *plan_.tasks[static_cast<std::size_t>(task)].spec;
      writeStep(task, spec.kind == OpKind::Aggregate ? "reduces all rows"
                      : keptTasks.contains(task)     ? "rows are kept"
                                                     : "");
    }
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

  void writeStep(int index, std::string_view note) {
    const PlanTask& task = plan_.tasks[static_cast<std::size_t>(index)];
    int& line = lines_[static_cast<std::size_t>(index)];
    if (line == 0) {
      line = ++lastLine_;
    }
    std::string inputs;
    for (const PlanInput& input : task.inputs) {
      inputs += (inputs.empty() ? "" : ", ") + inputName(input, lines_);
    }
    std::string step = fmt::format("  #{:<3} {}{}", line, task.spec->label,
                                   inputs.empty() ? "" : fmt::format("({})", inputs));
    append("{:<48}{:<18}{}", step, note, task.spec->origin);
    text_.erase(text_.find_last_not_of(' ') + 1);
    text_ += '\n';
  }

  const Plan& plan_;
  std::vector<int> lines_;
  int lastLine_ = 0;
  std::string text_;
};

}  // namespace

std::string describePlan(const Plan& plan) { return PlanText(plan).write(); }

}  // namespace kv::runtime

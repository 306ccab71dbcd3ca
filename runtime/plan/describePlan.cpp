// The plan is run as the driver would run it, round by round, except that nothing is computed: each
// pass is lowered by the function that lowers it for a run, and its steps are printed.

#include "plan/describePlan.h"

#include <fmt/core.h>

#include <algorithm>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "plan/RowSpaces.h"
#include "plan/Schedule.h"
#include "plan/lowerPass.h"

namespace kv::runtime {

namespace {

/// Longer rows aren't lined up with others: each row is as wide as the widest.
constexpr std::size_t kLinedUp = 120;

/// A pass lists up to as many steps that passes before have listed.
constexpr std::size_t kListedAgain = 3;

/// A name from a file may hold a line break, and must not add lines to a plan.
std::string onOneLine(const std::string& text) {
  std::string line;
  for (const char c : text) {
    const auto byte = static_cast<unsigned char>(c);
    line += byte < 0x20 ? fmt::format("\\x{:02x}", byte) : std::string(1, c);
  }
  return line;
}

/// Two notes as one; either may be empty.
std::string joined(const std::string& note, const std::string& more) {
  return note + (note.empty() || more.empty() ? "" : ", ") + more;
}

/// A branch of a choice, inside of those of others.
struct BranchOf {
  int choice = -1;
  bool isTrue = false;
  int outer = -1;  ///< index of the branch that this one is in; -1: none
  int depth = 0;
};

/// Which tasks are needed only if conditions that aren't known yet turn out in a certain way.
class BranchConditions {
 public:
  BranchConditions(const Plan& plan, const Schedule& schedule)
      : ofTask_(plan.tasks.size(), kUnused) {
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
  PlanText(const Plan& plan, const ShowValue& showValue, const Rules& rules)
      : plan_(plan),
        showValue_(showValue),
        rules_(rules),
        schedule_(plan),
        lines_(plan.tasks.size(), 0) {
    const RowSpaces rowSpaces(plan);
    for (const RowConflict& conflict : rowSpaces.conflicts()) {
      refused_.insert(conflict.task);
    }
  }

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
      if (task.spec->isChoice && schedule_.branchOf(index) == Branch::Unknown) {
        schedule_.setBranch(index, Branch::Both);
      } else {
        schedule_.setDone(index);
        writeStep(index, "once");
      }
    }
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
    const PassGraph pass = lowerPass(plan_, schedule_, sinks, rules_);
    std::vector<std::string> notes(plan_.tasks.size());
    std::vector<std::string> cuts(plan_.tasks.size());
    std::set<int> ends;
    for (std::size_t step = 0; step < pass.steps.size(); ++step) {
      const Operator& op = *pass.steps[step].op;
      std::string& note = (isFlow(op) ? cuts : notes)[static_cast<std::size_t>(pass.taskOf[step])];
      if (note.empty()) {  // a table that is read and kept says what is read
        note = op.planNote();
      }
      if (op.facts().callsUser) {
        const PlanTask& task = plan_.task(pass.taskOf[step]);
        const bool isFree = task.spec->isFree && task.functions &&
                            std::ranges::none_of(task.inputs, &PlanInput::staysInSession);
        note = joined(note, isFree ? "called on the workers" : "called in the lane");
      }
      if (op.as<ReadOperator>() != nullptr || op.as<SinkOperator>() != nullptr) {
        ends.insert(pass.taskOf[step]);
      }
    }
    const std::set<int> leftOut = repeatedSteps(pass.tasks, ends);
    for (const int task : pass.tasks) {
      if (!leftOut.contains(task)) {
        const auto at = static_cast<std::size_t>(task);
        const std::string refused = refused_.contains(task) ? "refused: rows differ" : "";
        writeStep(task, joined(joined(notes[at], cuts[at]), refused));
      } else if (task == *leftOut.begin()) {
        writeHeading(fmt::format("  and {} steps from above again", leftOut.size()));
      }
    }
  }

  /// The steps between reading and results that a pass repeats, if they are more than a few: each
  /// pass over a long chain of operations runs the steps of all passes before.
  std::set<int> repeatedSteps(const std::vector<int>& tasks, const std::set<int>& ends) const {
    std::set<int> repeated;
    for (const int task : tasks) {
      if (!ends.contains(task) && lines_[static_cast<std::size_t>(task)] > 0) {
        repeated.insert(task);
      }
    }
    return repeated.size() > kListedAgain ? repeated : std::set<int>{};
  }

  /// How a step names an input: the number of its line, or the value itself.
  std::string inputName(const PlanInput& input) const {
    return input.task >= 0 ? fmt::format("#{}", lines_[static_cast<std::size_t>(input.task)])
                           : showValue_(input.value);
  }

  void writeStep(int index, std::string note) {
    const PlanTask& task = plan_.task(index);
    int& line = lines_[static_cast<std::size_t>(index)];
    if (line == 0) {
      line = ++lastLine_;
    }
    std::string inputs;
    for (const PlanInput& input : task.inputs) {
      inputs += (inputs.empty() ? "" : ", ") + inputName(input);
    }
    rows_.push_back({fmt::format("  #{:<3} {}{}", line, task.spec->label,
                                 inputs.empty() ? "" : fmt::format("({})", inputs)),
                     std::move(note), task.spec->origin, index});
  }

  /// Adds to the steps of a branch what it depends on.
  void writeConditions() {
    const BranchConditions conditions(plan_, schedule_);
    for (Row& row : rows_) {
      const BranchOf* branch = row.task >= 0 ? conditions.of(row.task) : nullptr;
      if (branch != nullptr) {
        const PlanInput& condition = plan_.task(branch->choice).inputs[0];
        row.note =
            joined(row.note, fmt::format("if {} is {}", inputName(condition), branch->isTrue));
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
  const ShowValue& showValue_;
  const Rules& rules_;
  Schedule schedule_;
  std::set<int> refused_;  ///< tasks that combine rows of different row spaces
  std::vector<int> lines_;
  int lastLine_ = 0;
  std::vector<Row> rows_;
};

}  // namespace

std::string describePlan(const Plan& plan, const ShowValue& showValue, const Rules& rules) {
  return PlanText(plan, showValue, rules).write();
}

}  // namespace kv::runtime

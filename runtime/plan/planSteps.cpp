#include "plan/planSteps.h"

#include <cstddef>
#include <memory>
#include <optional>
#include <utility>

namespace kv::runtime {

namespace {

/// True if elements of an input become elements of the result: not of a condition, nor of a branch
/// that isn't taken.
bool passesElements(const PlanTask& task, std::size_t input, Branch branch) {
  if (!task.spec->isChoice) {
    return true;
  }
  const bool isTaken = branch == Branch::Unknown || branch == Branch::Both ||
                       input == static_cast<std::size_t>(branch);
  return input > 0 && isTaken;
}

}  // namespace

std::vector<Step> stepsOf(const Plan& plan, const std::vector<int>& tasks,
                          const Schedule& schedule) {
  const OperatorPtr pass = makePass();
  std::vector<std::optional<std::size_t>> stepOf(plan.tasks.size());
  std::vector<Step> steps;
  for (const int index : tasks) {
    const PlanTask& task = plan.task(index);
    Step step{task.spec->isChoice || task.spec->op == nullptr ? pass : task.spec->op};
    for (std::size_t i = 0; i < task.inputs.size(); ++i) {
      const int from = task.inputs[i].task;
      const auto found = from >= 0 ? stepOf[static_cast<std::size_t>(from)] : std::nullopt;
      const bool isPassed = found && passesElements(task, i, schedule.branchOf(index));
      step.inputs.push_back(isPassed ? StepLink{.index = *found, .output = task.inputs[i].output}
                                     : StepLink{.isStageInput = true});
    }
    stepOf[static_cast<std::size_t>(index)] = steps.size();
    steps.push_back(std::move(step));
  }
  return steps;
}

}  // namespace kv::runtime

// A value that a choice repeats has no rows of its own. It gets those of the other branch, and all
// that is needed of them is their number. So they must not be those of a user's function, which
// would be called for nothing, but those of what decides on them: the source or filter that they
// come from. A filter's own outputs may be expensive; its condition, filtered as they are, has the
// same rows. Such tasks are added only where a choice needs them.

#include "plan/PlanBuilder.h"

#include <algorithm>
#include <cassert>
#include <memory>
#include <span>
#include <utility>

namespace kv::runtime {

namespace {

/// The inputs whose rows are those of the result: all but the condition of a choice.
std::span<const PlanInput> rowInputs(const PlanTask& task) {
  const std::span inputs(task.inputs);
  return inputs.subspan(task.spec->isChoice ? std::min<std::size_t>(1, inputs.size()) : 0);
}

/// Whether a task has rows, and where it runs.
void placeTask(PlanTask& task, const Plan& plan) {
  const OpSpec& spec = *task.spec;
  const bool hasRows =
      spec.source() != nullptr || std::ranges::any_of(rowInputs(task), [&](const PlanInput& input) {
        return plan.flows(input);
      });
  task.isPartitioned = hasRows && !spec.endsRows() && !spec.isClientOnly();
  task.makesRows = hasRows && spec.makesRows();
  task.runsInClient = !hasRows || spec.isClientOnly();
}

/// A task of the plan's own, which does what another of the kind does.
PlanTask taskLike(const PlanTask& task, std::vector<PlanInput> inputs) {
  PlanTask made{.id = task.id, .factory = task.factory, .inputs = std::move(inputs)};
  made.isPartitioned = true;
  auto spec = std::make_shared<OpSpec>(*task.spec);
  spec->numInputs = made.inputs.size();
  spec->numOutputs = 1;
  made.spec = std::move(spec);
  made.knownCondition = task.knownCondition;
  return made;
}

bool isFilter(const PlanTask& task) {
  return task.spec->op != nullptr && task.spec->op->facts().rows == RowEffect::Filter;
}

}  // namespace

int PlanBuilder::add(PlanTask task) {
  assert(std::ranges::all_of(task.inputs, [this](const PlanInput& input) {
    return input.task < static_cast<int>(plan_.tasks.size());
  }));
  placeTask(task, plan_);
  std::optional<PlanInput> decider;
  if (task.spec->isChoice && task.isPartitioned) {
    decider = decideChoice(task);
  } else if (!isFilter(task) && !task.makesRows && !renewsRows(task)) {
    decider = firstFlowing(task);
  }
  const int index = push(std::move(task));
  deciders_[static_cast<std::size_t>(index)] = std::move(decider);
  return index;
}

int PlanBuilder::push(PlanTask task) {
  plan_.tasks.push_back(std::move(task));
  deciders_.emplace_back();
  return static_cast<int>(plan_.tasks.size()) - 1;
}

/// None for a task without rows, and for a source, which decides on its own.
std::optional<PlanInput> PlanBuilder::firstFlowing(const PlanTask& task) {
  for (const PlanInput& input : task.inputs) {
    if (plan_.flows(input)) {
      return deciderOf(input);
    }
  }
  return std::nullopt;
}

PlanInput PlanBuilder::deciderOf(const PlanInput& input) {
  if (input.task < 0) {
    return input;
  }
  const auto index = static_cast<std::size_t>(input.task);
  if (!deciders_[index]) {
    const int decider = decidingTask(input.task);
    deciders_[index] = PlanInput{.task = decider};
  }
  return *deciders_[index];
}

/// The condition of a filter, filtered by the same condition, has its rows. With one value for all
/// rows as its condition, they are those that decide on the rows that it filters.
int PlanBuilder::decidingTask(int index) {
  const PlanTask& task = plan_.task(index);
  if (!isFilter(task) || task.inputs.empty()) {
    return index;
  }
  const PlanInput condition = task.inputs[0];
  const PlanInput rows = plan_.flows(condition) ? condition : *firstFlowing(task);
  return push(taskLike(plan_.task(index), {condition, rows}));
}

/// Of a choice between rows and a value, the rows; of two that aren't the same, a choice again.
std::optional<PlanInput> PlanBuilder::decideChoice(PlanTask& task) {
  std::vector<PlanInput> deciders;
  for (const PlanInput& branch : rowInputs(task)) {
    if (plan_.flows(branch)) {
      deciders.push_back(deciderOf(branch));
    }
  }
  if (deciders.size() == 1) {
    task.spreadOver = deciders[0];
  }
  const bool areSame =
      deciders.size() == 2 && deciders[0].task >= 0 && deciders[0].task == deciders[1].task;
  if (deciders.size() == 1 || areSame) {
    return std::move(deciders[0]);
  }
  deciders.insert(deciders.begin(), task.inputs[0]);
  return PlanInput{.task = push(taskLike(task, std::move(deciders)))};
}

}  // namespace kv::runtime

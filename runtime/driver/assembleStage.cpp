// What a pass runs was decided by lowerPass(); here its steps get what belongs to the session: the
// values that they take, as columns of the engine and as users' functions get them, and the
// processor factories that have those functions. A step that a rule has changed has a description
// of its own; no rule changes a step that calls a function.

#include "driver/assembleStage.h"

#include <algorithm>
#include <cstddef>
#include <string>
#include <utility>

#include "column/arrays.h"
#include "driver/failures.h"
#include "kv/runtime/timeValues.h"
#include "values/chunkValues.h"
#include "values/columnValues.h"

namespace kv::runtime {

namespace {

using host::Value;

/// True for a value that can't be meant as rows: no column, or one that was broadcast.
bool isOpaque(const kxArray* value) {
  const kxArray* shaped = shapedElements(value);
  return !isColumn(value) || (kxIsEmpty(shaped) && kxGetN(shaped) != 1);
}

/// A value of a nullable column has the class of its type where nothing is missing.
void setNullable(Chunk& rows, const std::vector<bool>& isNullable) {
  for (std::size_t i = 0; i < std::min(rows.columns.size(), isNullable.size()); ++i) {
    if (isNullable[i]) {
      rows.columns[i] = rows.columns[i].asNullable();
    }
  }
}

/// What a step does. A rule may have changed the operator of its task, or added the step.
std::shared_ptr<const OpSpec> specOf(const Step& step, const PlanTask& task) {
  if (step.op == task.spec->op) {
    return task.spec;
  }
  auto spec = std::make_shared<OpSpec>(*task.spec);
  spec->op = step.op;
  spec->callsUser = step.op->facts().callsUser;
  spec->numInputs = step.inputs.size();
  spec->numOutputs = step.numOutputs;
  spec->label = step.label;
  spec->origin = step.origin;
  return spec;
}

/// An input of a step, as the engine takes it.
StageInput stageInput(const MaterialisedValue& whole, const PassInput& input, const Plan& plan) {
  if (whole.places) {
    Chunk rows = toChunk(whole.value.get());
    if (whole.places->isUntyped && rows.names == nullptr) {
      rows = emptyArray({});
    }
    setNullable(rows, whole.places->isNullable);
    return {std::move(rows), whole.places, whole.places->origin};
  }
  const bool isPassed = plan.task(input.task).spec->callsUser && isOpaque(whole.value.get());
  StageInput made{isPassed ? Chunk{} : toArray(whole.value.get())};
  made.isOpaque = isPassed;
  made.origin =
      input.from.task < 0 ? "a value in memory" : describe(*plan.task(input.from.task).spec);
  return made;
}

}  // namespace

AssembledStage assembleStage(const PassGraph& pass, const Plan& plan, const PlanHandles& handles,
                             const MaterialisedValues& values) {
  std::vector<StageInput> inputs;
  std::vector<Value> valuesOfInputs;
  for (const PassInput& input : pass.inputs) {
    const PlanTask& task = plan.task(input.task);
    withStep(*task.spec, handles.factoryOf(task), [&] {
      const MaterialisedValue whole = inputValue(input.from, handles, values);
      inputs.push_back(stageInput(whole, input, plan));
      valuesOfInputs.push_back(task.spec->passesTagged ? asBroadcast(whole.value.get())
                                                       : withoutBroadcast(whole.value.get()));
    });
  }
  AssembledStage assembled{Stage(pass.steps, pass.outputs, std::move(inputs)),
                           std::move(valuesOfInputs)};
  for (std::size_t step = 0; step < pass.steps.size(); ++step) {
    const PlanTask& task = plan.task(pass.taskOf[step]);
    assembled.specs.push_back(specOf(pass.steps[step], task));
    assembled.factories.push_back(handles.factoryOf(task));
  }
  return assembled;
}

}  // namespace kv::runtime

#include "driver/assembleStage.h"

#include <algorithm>
#include <cassert>
#include <map>
#include <memory>
#include <string>
#include <utility>

#include "column/arrays.h"
#include "driver/OpSpecValue.h"
#include "driver/StageValue.h"
#include "driver/failures.h"
#include "kv/runtime/timeValues.h"
#include "values/chunkValues.h"
#include "values/columnValues.h"
#include "values/hostNames.h"

// What a pass runs was decided by lowerPass(); here it only gets a form in the session. The core
// defines a stage as a composite processor: it links a graph of builders, each with the processor
// factory that has a step's functions and line, and calls buildUnderlyingProcessor, which makes
// steps of builders again: the same steps, perhaps in another order in which each comes after its
// inputs. Inputs of the stage keep their numbers, to which the conditions of reads refer. A step
// that a rule has changed has a factory of its own, with what the step does now; no rule changes a
// step that calls a function.

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

/// A factory of what a step does, with the line of another, and without functions.
Value factoryLike(const kxArray* factory, OpSpec spec) {
  assert(!spec.callsUser);
  const Value stack = host::getProperty(factory, "SubmissionStack");
  Value made = host::call(kSpecFactory, {nullptr, nullptr, stack.get()});
  host::setNativeValue(made.get(),
                       std::make_unique<OpSpecValue>(std::make_shared<OpSpec>(std::move(spec))));
  return made;
}

const kcos::COSInterface* objectOf(const kxArray* scalar) {
  return kcos::omGetArrayElement(scalar, 0).get();
}

Value builder(const std::vector<Value>& inputs, const kxArray* factory) {
  const Value column = matrix::from_kalvex(
      kcos::omCreateKCOSMatrix(inputs.size(), 1, kcos::internal::makeInterned(kProcessorBuilder)));
  for (std::size_t i = 0; i < inputs.size(); ++i) {
    kcos::omSetArrayElement(column.get(), i, kcos::omGetArrayElement(inputs[i].get(), 0));
  }
  return host::call(kProcessorBuilder, {column.get(), factory});
}

class BuilderGraphMaker {
 public:
  BuilderGraphMaker(const PassGraph& pass, const Plan& plan, const PlanHandles& handles,
                    const WholeValues& values)
      : pass_(pass),
        plan_(plan),
        handles_(handles),
        values_(values),
        inputs_(pass.inputs.size()),
        valuesOfInputs_(pass.inputs.size()) {}

  void addStep(std::size_t number) {
    const Step& step = pass_.steps[number];
    const PlanTask& task = taskOf(number);
    if (!step.rowSpace.empty()) {
      rowSpaces_.emplace(objectOf(handles_.factoryOf(task)), step.rowSpace);
    }
    withStep(*task.spec, handles_.factoryOf(task), [&] {
      std::vector<Value> inputs;
      for (const StepLink& link : step.inputs) {
        inputs.push_back(link.isStageInput ? inputBuilder(link.index) : outputOf(link));
      }
      const bool isOfTask = step.op == task.spec->op;
      const Value made = isOfTask ? nullptr : factoryLike(handles_.factoryOf(task), specOf(number));
      steps_.push_back(builder(inputs, isOfTask ? handles_.factoryOf(task) : made.get()));
    });
  }

  Value composite() const {
    std::vector<Value> outputs;
    for (const std::size_t step : pass_.outputs) {
      outputs.push_back(matrix::sharedCopy(steps_[step].get()));
    }
    const Value factory = host::call(kSpecFactory, {nullptr, nullptr, nullptr});
    return host::call("feval", {builder(outputs, factory.get()).get()});
  }

  /// The steps that came of the builders, which don't know the rows that a step makes.
  std::vector<Step> withRowSpaces(std::vector<Step> steps, const kxArray* factories) const {
    for (std::size_t step = 0; step < steps.size(); ++step) {
      const auto found = rowSpaces_.find(objectOf(kxGetCell(factories, step)));
      steps[step].rowSpace = found != rowSpaces_.end() ? found->second : "";
    }
    return steps;
  }

  std::vector<StageInput> takeInputs() { return std::move(inputs_); }
  std::vector<Value> takeValues() { return std::move(valuesOfInputs_); }

 private:
  const PlanTask& taskOf(std::size_t step) const { return plan_.task(pass_.taskOf[step]); }

  OpSpec specOf(std::size_t number) const {
    const Step& step = pass_.steps[number];
    OpSpec spec = *taskOf(number).spec;
    spec.op = step.op;
    spec.callsUser = step.op->facts().callsUser;
    spec.numInputs = step.inputs.size();
    spec.numOutputs = step.numOutputs;
    spec.label = step.label;
    spec.origin = step.origin;
    return spec;
  }

  /// The builder of one output of a step.
  Value outputOf(const StepLink& link) const {
    std::vector<Value> inputs;
    inputs.push_back(matrix::sharedCopy(steps_[link.index].get()));
    if (pass_.steps[link.index].numOutputs <= 1) {
      return std::move(inputs[0]);
    }
    const PlanTask& task = taskOf(link.index);
    const Value factory =
        factoryLike(handles_.factoryOf(task), {.label = task.spec->label, .selects = link.output});
    return builder(inputs, factory.get());
  }

  /// The builder of an input of the stage, whose value is noted.
  Value inputBuilder(std::size_t index) {
    const PassInput& input = pass_.inputs[index];
    const WholeValue whole = inputValue(input.from, handles_, values_);
    if (whole.places) {
      Chunk rows = toChunk(whole.value.get());
      if (whole.places->isUntyped && rows.names == nullptr) {
        rows = emptyArray({});
      }
      setNullable(rows, whole.places->isNullable);
      inputs_[index] = {std::move(rows), whole.places, whole.places->origin};
    } else {
      const bool isPassed = plan_.task(input.task).spec->callsUser && isOpaque(whole.value.get());
      inputs_[index] = {isPassed ? Chunk{} : toArray(whole.value.get())};
      inputs_[index].isOpaque = isPassed;
      inputs_[index].origin =
          input.from.task < 0 ? "a value in memory" : describe(*plan_.task(input.from.task).spec);
    }
    valuesOfInputs_[index] = plan_.task(input.task).spec->passesTagged
                                 ? asBroadcast(whole.value.get())
                                 : withoutBroadcast(whole.value.get());
    const Value ordinal = host::makeDouble(static_cast<double>(index + 1));
    return host::call(kProcessorBuilder, {ordinal.get()});
  }

  const PassGraph& pass_;
  const Plan& plan_;
  const PlanHandles& handles_;
  const WholeValues& values_;
  std::vector<Value> steps_;                                    ///< the builder of each step
  std::map<const kcos::COSInterface*, std::string> rowSpaces_;  ///< of steps, by their factory
  std::vector<StageInput> inputs_;
  std::vector<Value> valuesOfInputs_;
};

}  // namespace

const Stage& AssembledStage::stage() const {
  return host::nativeValue<StageValue>(composite.get(), kCompositeGraph).stage;
}

const OpSpec& AssembledStage::specOf(std::size_t step) const {
  return *host::nativeValue<OpSpecValue>(factoryOf(step).get(), kSpecFactory).spec;
}

Value AssembledStage::factoryOf(std::size_t step) const {
  const Value factories = host::getProperty(composite.get(), "Factories");
  return matrix::sharedCopy(kxGetCell(factories.get(), step));
}

AssembledStage assembleStage(const PassGraph& pass, const Plan& plan, const PlanHandles& handles,
                             const WholeValues& values) {
  BuilderGraphMaker maker(pass, plan, handles, values);
  for (std::size_t step = 0; step < pass.steps.size(); ++step) {
    maker.addStep(step);
  }
  Value composite = maker.composite();
  Stage& stage = host::nativeValue<StageValue>(composite.get(), kCompositeGraph).stage;
  assert(stage.steps().size() == pass.steps.size());
  const Value factories = host::getProperty(composite.get(), "Factories");
  stage = Stage(maker.withRowSpaces(stage.steps(), factories.get()), stage.outputs(),
                maker.takeInputs());
  return {std::move(composite), maker.takeValues()};
}

}  // namespace kv::runtime

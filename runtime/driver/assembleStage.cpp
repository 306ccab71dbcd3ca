#include "driver/assembleStage.h"

#include <algorithm>
#include <memory>
#include <string>
#include <utility>

#include "driver/StageValue.h"
#include "plan/failures.h"
#include "values/chunkValues.h"
#include "values/columnValues.h"
#include "values/hostNames.h"

namespace kv::runtime {

namespace {

using host::Value;

/// True for a value that can't be meant as rows: no column, or one that was broadcast.
bool isOpaque(const kxArray* value) {
  return !isColumn(value) || (kxIsEmpty(value) && kxGetN(value) != 1);
}

/// A value of a nullable column has the class of its type where nothing is missing.
void setNullable(Chunk& rows, const std::vector<bool>& isNullable) {
  for (std::size_t i = 0; i < std::min(rows.columns.size(), isNullable.size()); ++i) {
    if (isNullable[i]) {
      rows.columns[i] = rows.columns[i].asNullable();
    }
  }
}

/// Makes the builders of a pass: one for each task that flows in it, one for each value that it
/// reads.
class BuilderGraphMaker {
 public:
  BuilderGraphMaker(const Plan& plan, const Schedule& schedule, const WholeValues& values)
      : plan_(plan), schedule_(schedule), values_(values), ofTask_(plan.tasks.size()) {}

  /// The builders of all partitioned tasks and of the sinks are made in dependency order.
  void addTask(int index) {
    const PlanTask& task = plan_.task(index);
    withStep(*task.spec, task.factory.get(), [&] {
      std::vector<Value> inputs;
      for (const PlanInput* input : schedule_.inputsOf(index)) {
        inputs.push_back(flows(*input) ? outputOf(input->task, input->output)
                                       : inputBuilder(*task.spec, *input));
      }
      const bool isBranch = task.spec->isChoice && inputs.size() == 1;
      ofTask_[static_cast<std::size_t>(index)] =
          isBranch ? std::move(inputs[0]) : builder(inputs, task.factory.get());
    });
  }

  /// The builder of one output of a task.
  Value outputOf(int index, std::size_t output) const {
    const auto at = static_cast<std::size_t>(index);
    if (plan_.tasks[at].spec->numOutputs <= 1) {
      return matrix::sharedCopy(ofTask_[at].get());
    }
    std::vector<Value> inputs;
    inputs.push_back(matrix::sharedCopy(ofTask_[at].get()));
    return specBuilder(inputs, {.label = plan_.tasks[at].spec->label, .selects = output},
                       submissionStackOf(plan_.tasks[at].factory.get()).get());
  }

  Value whole(int index) const {
    return matrix::sharedCopy(ofTask_[static_cast<std::size_t>(index)].get());
  }

  /// A builder of the rows of an output that are kept.
  Value keptOutput(const PassSink& sink) const {
    std::vector<Value> inputs;
    inputs.push_back(outputOf(sink.task, sink.output));
    const PlanTask& task = plan_.tasks[static_cast<std::size_t>(sink.task)];
    return specBuilder(inputs, {.numInputs = 1, .label = "keep rows", .op = makeCollect()},
                       submissionStackOf(task.factory.get()).get());
  }

  /// A builder with a factory of the runtime's own; failures of its step have `stack` (null: none).
  static Value specBuilder(const std::vector<Value>& inputs, OpSpec spec,
                           const kxArray* stack = nullptr) {
    const Value factory = host::call(kSpecFactory, {nullptr, nullptr, stack});
    host::setNativeValue(factory.get(),
                         std::make_unique<OpSpecValue>(std::make_shared<OpSpec>(std::move(spec))));
    return builder(inputs, factory.get());
  }

  std::vector<StageInput> takeInputs() { return std::move(inputs_); }
  std::vector<Value> takeValues() { return std::move(valuesOfInputs_); }

 private:
  bool flows(const PlanInput& input) const {
    return input.task >= 0 && plan_.tasks[static_cast<std::size_t>(input.task)].isPartitioned;
  }

  static Value builder(const std::vector<Value>& inputs, const kxArray* factory) {
    const Value column = matrix::from_kalvex(kcos::omCreateKCOSMatrix(
        inputs.size(), 1, kcos::internal::makeInterned(kProcessorBuilder)));
    for (std::size_t i = 0; i < inputs.size(); ++i) {
      kcos::omSetArrayElement(column.get(), i, kcos::omGetArrayElement(inputs[i].get(), 0));
    }
    return host::call(kProcessorBuilder, {column.get(), factory});
  }

  /// Errors: "KALVEX:array:NotAColumn" for a step of ours that gets anything else.
  Value inputBuilder(const OpSpec& spec, const PlanInput& input) {
    const WholeValue whole = inputValue(input, values_);
    if (whole.places) {
      Chunk rows = toChunk(whole.value.get());
      if (whole.places->isUntyped && rows.names == nullptr) {
        rows.columns = {emptyColumn(ElementType::Unknown)};
      }
      setNullable(rows, whole.places->isNullable);
      inputs_.push_back(
          {emptyColumn(ElementType::Double), whole.places, std::move(rows), whole.places->origin});
    } else {
      const bool isPassed = spec.callsUser && isOpaque(whole.value.get());
      inputs_.push_back(
          {isPassed ? emptyColumn(ElementType::Unknown) : toColumn(whole.value.get())});
      inputs_.back().isOpaque = isPassed;
      inputs_.back().origin =
          input.task < 0 ? "a value in memory" : describe(*plan_.task(input.task).spec);
    }
    valuesOfInputs_.push_back(withoutBroadcast(whole.value.get()));
    const Value ordinal = host::makeDouble(static_cast<double>(inputs_.size()));
    return host::call(kProcessorBuilder, {ordinal.get()});
  }

  const Plan& plan_;
  const Schedule& schedule_;
  const WholeValues& values_;
  std::vector<Value> ofTask_;
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
  return matrix::sharedCopy(kxGetCell(factories.get(), factoryNumbers[step]));
}

AssembledStage assembleStage(const Plan& plan, const Schedule& schedule,
                             const std::vector<PassSink>& sinks, const WholeValues& values) {
  BuilderGraphMaker maker(plan, schedule, values);
  for (const int task : schedule.upstreamOf(sinks)) {
    maker.addTask(task);
  }
  std::vector<Value> outputs;
  for (const PassSink& sink : sinks) {
    outputs.push_back(sink.isAggregate ? maker.whole(sink.task) : maker.keptOutput(sink));
  }
  const Value root = BuilderGraphMaker::specBuilder(outputs, {.label = "outputs"});
  Value composite = host::call("feval", {root.get()});
  Stage& stage = host::nativeValue<StageValue>(composite.get(), kCompositeGraph).stage;
  std::vector<StageInput> inputs = maker.takeInputs();
  AlignedSteps aligned = alignCuts(stage.steps(), inputs);
  std::vector<std::size_t> sinkSteps;
  for (const std::size_t output : stage.outputs()) {
    sinkSteps.push_back(aligned.placeOf[output]);
  }
  stage = Stage(std::move(aligned.steps), std::move(sinkSteps), std::move(inputs));
  return {std::move(composite), maker.takeValues(), std::move(aligned.madeFor)};
}

}  // namespace kv::runtime

#include "execution/clientTasks.h"

#include <exception>
#include <utility>

#include "execution/chunkSteps.h"
#include "execution/failures.h"
#include "kv/host/errors.h"
#include "kv/runtime/selectRows.h"

namespace kv::runtime {
namespace {

using host::Value;

std::vector<WholeValue> wholes(std::vector<Value> outputs) {
  std::vector<WholeValue> values;
  for (Value& output : outputs) {
    values.push_back({std::move(output), nullptr});
  }
  return values;
}

std::vector<Value> callHandle(const kxArray* factory, kcos::NameRef slot, std::size_t numOutputs,
                              const std::vector<Value>& inputs) {
  const Value handle = host::getProperty(factory, slot);
  std::vector<const kxArray*> arguments{handle.get()};
  for (const Value& input : inputs) {
    arguments.push_back(input.get());
  }
  std::vector<Value> outputs = host::callMany("feval", static_cast<int>(numOutputs), arguments);
  outputs.resize(numOutputs);
  return outputs;
}

std::vector<Value> filterWhole(const std::vector<Value>& inputs) {
  const Chunk keep = toChunk(inputs.at(0).get());
  std::vector<Value> outputs;
  for (std::size_t i = 1; i < inputs.size(); ++i) {
    outputs.push_back(toValue(selectRows(toChunk(inputs[i].get()), keep.columns.front())));
  }
  return outputs;
}

std::vector<WholeValue> runOn(const PlanTask& task, const std::vector<Value>& inputs) {
  const OpSpec& spec = *task.spec;
  switch (spec.kind) {
    case OpKind::Variable: {
      std::vector<Value> taken;
      taken.push_back(toValue(takeVariables(spec, toChunk(inputs.at(0).get()))));
      return wholes(std::move(taken));
    }
    case OpKind::Filter:
      return wholes(filterWhole(inputs));
    case OpKind::Aggregate: {
      std::vector<Value> partials =
          callHandle(task.factory.get(), "FunctionHandle", spec.numOutputs, inputs);
      return spec.function.aggregate
                 ? wholes(std::move(partials))
                 : reducePartials(task.factory.get(), spec.numOutputs, partials);
    }
    default:
      return wholes(callHandle(task.factory.get(), "FunctionHandle", spec.numOutputs, inputs));
  }
}

}  // namespace

std::vector<WholeValue> reducePartials(const kxArray* factory, std::size_t numOutputs,
                                       const std::vector<Value>& partials) {
  return wholes(callHandle(factory, "ReduceHandle", numOutputs, partials));
}

std::vector<WholeValue> runClientTask(const PlanTask& task, const WholeValues& values) {
  std::vector<Value> inputs;
  for (const PlanInput& input : task.inputs) {
    inputs.push_back(inputValue(input, values));
  }
  try {
    return runOn(task, inputs);
  } catch (...) {
    const Value stack = host::getProperty(task.factory.get(), "SubmissionStack");
    raiseStepFailure(std::current_exception(), stack.get(), std::nullopt);
  }
}

}  // namespace kv::runtime

#include "driver/clientTasks.h"

#include <algorithm>
#include <utility>

#include "driver/randomStreams.h"
#include "driver/slicedCalls.h"
#include "engine/chunkSteps.h"
#include "kv/runtime/selectRows.h"
#include "values/chunkValues.h"
#include "values/columnValues.h"

namespace kv::runtime {
namespace {

using host::Value;

/// Whose random stream a function of whole values has.
constexpr std::int64_t kFirstPartition = 0;

std::vector<WholeValue> wholes(std::vector<Value> outputs) {
  std::vector<WholeValue> values;
  for (Value& output : outputs) {
    values.push_back({std::move(output)});
  }
  return values;
}

std::vector<Value> callHandle(const kxArray* factory, kcos::NameRef slot, std::size_t numOutputs,
                              const std::vector<const kxArray*>& inputs) {
  const Value handle = host::getProperty(factory, slot);
  std::vector<const kxArray*> arguments{handle.get()};
  arguments.insert(arguments.end(), inputs.begin(), inputs.end());
  const StreamScope stream(streamForPartition(factory, kFirstPartition));
  std::vector<Value> outputs = host::callMany("feval", static_cast<int>(numOutputs), arguments);
  outputs.resize(numOutputs);
  if (!isBuiltInHandle(handle.get())) {
    std::ranges::transform(outputs, outputs.begin(),
                           [](Value& output) { return asReturned(std::move(output)); });
  }
  return outputs;
}

/// True for a column of several rows; a function gets any other value as it is.
bool isRows(const kxArray* value) {
  return isColumn(value) && kxGetN(value) == 1 && kxGetM(value) > 1;
}

/// The function of an operation on rows, called on as many at a time as it takes.
std::vector<Value> callOnRows(const PlanTask& task, const std::vector<const kxArray*>& inputs) {
  const Value handle = host::getProperty(task.factory.get(), "FunctionHandle");
  const auto maxRows = static_cast<std::size_t>(maxRowsOf(*task.spec, handle.get()));
  const auto isTooLong = [maxRows](const kxArray* input) {
    return isRows(input) && kxGetM(input) > maxRows;
  };
  if (std::ranges::none_of(inputs, isTooLong)) {
    return callHandle(task.factory.get(), "FunctionHandle", task.spec->numOutputs, inputs);
  }
  std::vector<CallInput> arguments;
  std::int64_t rows = 1;
  for (const kxArray* input : inputs) {
    if (isRows(input)) {
      arguments.push_back({toColumn(input), nullptr});
      rows = arguments.back().rows->rows();
    } else {
      arguments.push_back({std::nullopt, input});
    }
  }
  const StreamScope stream(streamForPartition(task.factory.get(), kFirstPartition));
  std::vector<Value> outputs;
  OutputTypes types;
  const Chunk all{kFirstPartition, RowOrdinals(0, rows), nullptr, {}};
  for (const Column& column : callInSlices(*task.spec, handle.get(), arguments, all, types)) {
    outputs.push_back(toValue(column));
  }
  return outputs;
}

std::vector<Value> reduceValues(const kxArray* factory, std::size_t numOutputs,
                                const std::vector<Value>& partials) {
  std::vector<const kxArray*> inputs;
  for (const Value& partial : partials) {
    inputs.push_back(partial.get());
  }
  return callHandle(factory, "ReduceHandle", numOutputs, inputs);
}

/// The results of a function that the operation says has logical ones.
std::vector<Value> checkedTypes(const OpSpec& spec, std::vector<Value> outputs) {
  for (const Value& output : outputs) {
    if (spec.givesLogical) {
      requireType(spec, toColumn(output.get()));
    }
  }
  return outputs;
}

std::vector<Value> filterWhole(const std::vector<const kxArray*>& inputs) {
  const Chunk keep = toChunk(inputs.at(0));
  std::vector<Value> outputs;
  for (std::size_t i = 1; i < inputs.size(); ++i) {
    outputs.push_back(toValue(selectRows(toChunk(inputs[i]), keep.columns.front())));
  }
  return outputs;
}

std::vector<Value> runOn(const PlanTask& task, const std::vector<const kxArray*>& values) {
  const OpSpec& spec = *task.spec;
  const kxArray* factory = task.factory.get();
  std::vector<Value> outputs;
  switch (spec.kind) {
    case OpKind::Variable:
      outputs.push_back(toValue(takeVariables(spec, toChunk(values.at(0)))));
      return outputs;
    case OpKind::Filter:
      return filterWhole(values);
    case OpKind::Elementwise:
      return checkedTypes(spec, callOnRows(task, values));
    case OpKind::Choose:
    case OpKind::Pass:
      outputs.push_back(matrix::sharedCopy(values.at(0)));
      return outputs;
    case OpKind::Aggregate:
      outputs = callOnRows(task, values);
      return spec.function.aggregate ? std::move(outputs)
                                     : reduceValues(factory, spec.numOutputs, outputs);
    default:
      return callHandle(factory, "FunctionHandle", spec.numOutputs, values);
  }
}

}  // namespace

std::vector<WholeValue> reducePartials(const kxArray* factory, std::size_t numOutputs,
                                       const std::vector<Value>& partials) {
  return wholes(reduceValues(factory, numOutputs, partials));
}

std::vector<WholeValue> runClientTask(const PlanTask& task, const std::vector<WholeValue>& inputs) {
  std::vector<const kxArray*> values;
  for (const WholeValue& input : inputs) {
    values.push_back(input.value.get());
  }
  return wholes(runOn(task, values));
}

}  // namespace kv::runtime

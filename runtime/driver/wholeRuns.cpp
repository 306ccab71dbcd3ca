#include "driver/wholeRuns.h"

#include <algorithm>
#include <cassert>
#include <iterator>
#include <utility>

#include "driver/builtInFunctions.h"
#include "driver/randomStreams.h"
#include "driver/slicedCalls.h"
#include "kv/runtime/timeValues.h"
#include "values/chunkValues.h"
#include "values/columnValues.h"

namespace kv::runtime {

namespace {

using host::Value;

/// Whose random stream a function of whole values has.
constexpr std::int64_t kFirstPartition = 0;

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
  const kxArray* shaped = shapedElements(value);
  return isColumn(value) && kxGetN(shaped) == 1 && kxGetM(shaped) > 1;
}

std::vector<Value> callOnWholes(const OpSpec& spec, const kxArray* factory,
                                const std::vector<const kxArray*>& inputs) {
  return callHandle(factory, "FunctionHandle", spec.numOutputs, inputs);
}

std::vector<Value> callOnRows(const OpSpec& spec, const kxArray* factory,
                              const std::vector<const kxArray*>& inputs) {
  const Value handle = host::getProperty(factory, "FunctionHandle");
  const auto maxRows = static_cast<std::size_t>(maxRowsOf(spec, handle.get()));
  const auto isTooLong = [maxRows](const kxArray* input) {
    return isRows(input) && kxGetM(shapedElements(input)) > maxRows;
  };
  if (std::ranges::none_of(inputs, isTooLong)) {
    return callHandle(factory, "FunctionHandle", spec.numOutputs, inputs);
  }
  std::vector<CallInput> arguments;
  std::int64_t rows = 1;
  for (const kxArray* input : inputs) {
    if (isRows(input)) {
      arguments.push_back({toArray(input), nullptr});
      rows = arguments.back().rows->rows();
    } else {
      arguments.push_back({std::nullopt, input});
    }
  }
  const StreamScope stream(streamForPartition(factory, kFirstPartition));
  std::vector<Value> outputs;
  OutputTypes types;
  const Chunk all{kFirstPartition, RowOrdinals(0, rows), nullptr, {}};
  for (const Chunk& output : callInSlices(spec, handle.get(), arguments, all, types)) {
    outputs.push_back(toValue(output));
  }
  return outputs;
}

std::vector<Value> callOnRowsForLogical(const OpSpec& spec, const kxArray* factory,
                                        const std::vector<const kxArray*>& inputs) {
  std::vector<Value> outputs = callOnRows(spec, factory, inputs);
  for (const Value& output : outputs) {
    requireLogical(spec.label, toArray(output.get()));
  }
  return outputs;
}

std::vector<Value> callAndReduce(const OpSpec& spec, const kxArray* factory,
                                 const std::vector<const kxArray*>& inputs) {
  const std::vector<Value> partials = callOnRows(spec, factory, inputs);
  std::vector<const kxArray*> values;
  for (const Value& partial : partials) {
    values.push_back(partial.get());
  }
  return reducePartials(factory, spec.numOutputs, values);
}

std::vector<Value> runOperatorOnce(const OpSpec& spec, const kxArray* /*factory*/,
                                   const std::vector<const kxArray*>& inputs) {
  std::vector<Chunk> chunks;
  for (const kxArray* input : inputs) {
    chunks.push_back(toChunk(input));
  }
  std::vector<Value> outputs;
  for (const Chunk& chunk : processOnce(*spec.op, spec.label, chunks)) {
    outputs.push_back(toValue(chunk));
  }
  return outputs;
}

std::vector<Value> passOn(const OpSpec& spec, const kxArray* /*factory*/,
                          const std::vector<const kxArray*>& inputs) {
  std::vector<Value> outputs;
  for (std::size_t i = 0; i < spec.numOutputs; ++i) {
    outputs.push_back(matrix::sharedCopy(inputs.at(i)));
  }
  return outputs;
}

using Run = std::vector<Value> (*)(const OpSpec& spec, const kxArray* factory,
                                   const std::vector<const kxArray*>& inputs);

/// By WholeRun.
constexpr Run kRuns[] = {callOnWholes,  callOnRows,      callOnRowsForLogical,
                         callAndReduce, runOperatorOnce, passOn};

}  // namespace

std::vector<Value> runWhole(const OpSpec& spec, const kxArray* factory,
                            const std::vector<const kxArray*>& inputs) {
  const auto run = static_cast<std::size_t>(spec.wholeRun);
  assert(run < std::size(kRuns));
  return kRuns[run](spec, factory, inputs);
}

std::vector<Value> reducePartials(const kxArray* factory, std::size_t numOutputs,
                                  const std::vector<const kxArray*>& partials) {
  return callHandle(factory, "ReduceHandle", numOutputs, partials);
}

}  // namespace kv::runtime

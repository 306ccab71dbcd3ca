#include "driver/SessionFunctions.h"

#include <memory>
#include <utility>

#include "driver/failures.h"
#include "driver/partitionCalls.h"
#include "driver/randomStreams.h"
#include "driver/slicedCalls.h"
#include "driver/wholeRuns.h"
#include "values/chunkValues.h"

namespace kv::runtime {

using host::Value;

std::vector<Chunk> SessionFunctions::call(std::size_t step, const Chunk& rows,
                                          std::span<const FunctionInput> inputs,
                                          OutputTypes& types) {
  return withRecordedErrors([&] {
    const std::vector<CallInput> arguments = argumentsOf(inputs);
    const kxArray* factory = stage_.factoryOf(step);
    const Value handle = host::getProperty(factory, "FunctionHandle");
    const StreamScope scope(matrix::sharedCopy(streamOf(step, rows.partition, factory)));
    return callInSlices(stage_.specOf(step), handle.get(), arguments, rows, types);
  });
}

PartitionResults SessionFunctions::callPartition(std::size_t step, const Chunk& rows,
                                                 std::span<const FunctionInput> inputs,
                                                 const PartitionPlace& place, bool returnsUnused,
                                                 OutputTypes& types) {
  return withRecordedErrors([&] {
    const kxArray* factory = stage_.factoryOf(step);
    const Value handle = host::getProperty(factory, "FunctionHandle");
    const StreamScope scope(matrix::sharedCopy(streamOf(step, rows.partition, factory)));
    return callOnPartition(stage_.specOf(step), handle.get(), argumentsOf(inputs), rows, place,
                           returnsUnused, types);
  });
}

std::vector<CallInput> SessionFunctions::argumentsOf(std::span<const FunctionInput> inputs) const {
  std::vector<CallInput> arguments;
  for (const FunctionInput& input : inputs) {
    arguments.push_back({input.rows, input.rows ? nullptr : stage_.values[input.value].get()});
  }
  return arguments;
}

const kxArray* SessionFunctions::streamOf(std::size_t step, std::int64_t partition,
                                          const kxArray* factory) {
  const auto known = streams_.find({step, partition});
  if (known != streams_.end()) {
    return known->second.get();
  }
  Value stream = streamForPartition(factory, partition);
  return streams_.emplace(StepAndPartition(step, partition), std::move(stream)).first->second.get();
}

ReducedValues SessionFunctions::reduce(std::size_t step, std::span<const Chunk> partials) {
  return withRecordedErrors([&]() -> ReducedValues {
    std::vector<Value> values;
    std::vector<const kxArray*> inputs;
    for (const Chunk& partial : partials) {
      values.push_back(toValue(partial));
      inputs.push_back(values.back().get());
    }
    const kxArray* factory = stage_.factoryOf(step);
    return std::make_shared<const std::vector<Value>>(
        reducePartials(factory, stage_.specOf(step).functionOutputs(), inputs));
  });
}

std::vector<Chunk> SessionFunctions::partialsOf(std::size_t /*step*/,
                                                const ReducedValues& reduced) {
  return withRecordedErrors([&] {
    std::vector<Chunk> arrays;
    for (const Value& value : valuesOf(reduced)) {
      arrays.push_back(toArray(value.get()));
    }
    return arrays;
  });
}

void SessionFunctions::endPartition(std::int64_t partition) {
  std::erase_if(streams_, [&](const auto& stream) { return stream.first.second == partition; });
}

std::vector<Value> SessionFunctions::valuesOf(const ReducedValues& reduced) {
  std::vector<Value> values;
  for (const Value& value : *std::static_pointer_cast<const std::vector<Value>>(reduced)) {
    values.push_back(matrix::sharedCopy(value.get()));
  }
  return values;
}

}  // namespace kv::runtime

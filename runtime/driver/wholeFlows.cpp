#include "driver/wholeFlows.h"

#include <algorithm>
#include <cassert>
#include <memory>
#include <utility>

#include "column/concatenate.h"
#include "driver/partitionCalls.h"
#include "driver/randomStreams.h"
#include "operator/StageInput.h"
#include "values/chunkValues.h"
#include "values/columnValues.h"

namespace kv::runtime {

namespace {

using host::Value;

/// The functions of one operation on materialised values.
class WholeFunctions final : public UserFunctions {
 public:
  WholeFunctions(const OpSpec& spec, const kxArray* factory, const std::vector<Value>& values)
      : spec_(spec),
        handle_(host::getProperty(factory, "FunctionHandle")),
        values_(values),
        stream_(streamForPartition(factory, 0)) {}

  std::vector<Chunk> call(std::size_t /*step*/, const Chunk& rows,
                          std::span<const FunctionInput> inputs, OutputTypes& types) override {
    return callInSlices(spec_, handle_.get(), argumentsOf(inputs), rows, types);
  }

  PartitionResults callPartition(std::size_t /*step*/, const Chunk& rows,
                                 std::span<const FunctionInput> inputs, const PartitionPlace& place,
                                 bool returnsUnused, OutputTypes& types) override {
    return callOnPartition(spec_, handle_.get(), argumentsOf(inputs), rows, place, returnsUnused,
                           types);
  }

 private:
  std::vector<CallInput> argumentsOf(std::span<const FunctionInput> inputs) const {
    std::vector<CallInput> arguments;
    for (const FunctionInput& input : inputs) {
      arguments.push_back({input.rows, input.rows ? nullptr : values_[input.value].get()});
    }
    return arguments;
  }

  const OpSpec& spec_;
  Value handle_;
  const std::vector<Value>& values_;
  StreamScope stream_;
};

/// True for a column of several rows, or of none.
bool isColumnOfRows(const kxArray* value) {
  return !isBroadcastArray(value) && isColumn(value) && rowsOf(value).value_or(1) != 1;
}

}  // namespace

std::vector<Value> runFlow(const OpSpec& spec, const kxArray* factory,
                           const std::vector<const kxArray*>& inputs) {
  std::vector<Value> values;
  std::vector<FlowInput> given(inputs.size(), {"a value in memory"});
  const StageInput opaque{.isOpaque = true};
  const auto first = std::ranges::find_if(inputs, isColumnOfRows);
  for (std::size_t i = 0; i < inputs.size(); ++i) {
    values.push_back(spec.passesTagged ? matrix::sharedCopy(inputs[i])
                                       : withoutBroadcast(inputs[i]));
    const bool isFirstOfNone = first == inputs.end() && i == 0 && isColumn(values[i].get());
    if (!isColumnOfRows(inputs[i]) && !isFirstOfNone) {
      given[i] = {"a value in memory", &opaque, i};
    }
  }
  WholeFunctions functions(spec, factory, values);
  OutputTypes types;
  const KnownTypes none;
  const auto* flow = spec.op->as<FlowOperator>();
  assert(flow != nullptr);
  const std::unique_ptr<FlowRun> run = flow->start({.label = spec.label,
                                                    .numOutputs = spec.numOutputs,
                                                    .functions = functions,
                                                    .types = types,
                                                    .typesForNoRows = &none},
                                                   given);
  for (std::size_t i = 0; i < inputs.size(); ++i) {
    if (given[i].value == nullptr) {
      run->push(i, toChunk(values[i].get()));
    }
    run->finishInput(i);
  }
  std::vector<std::vector<Chunk>> parts(spec.numOutputs);
  while (const std::optional<std::vector<Chunk>> emitted = run->next()) {
    for (std::size_t i = 0; i < parts.size(); ++i) {
      parts[i].push_back((*emitted)[i]);
    }
  }
  std::vector<Value> outputs;
  for (const std::vector<Chunk>& part : parts) {
    outputs.push_back(toValue(concatenateArrays(part)));
  }
  return outputs;
}

std::vector<Value> handOver(const OpSpec& spec, const kxArray* factory,
                            const std::vector<const kxArray*>& inputs) {
  std::vector<CallInput> arguments;
  for (const kxArray* input : inputs) {
    arguments.push_back({std::nullopt, input});
  }
  const Value handle = host::getProperty(factory, "FunctionHandle");
  const StreamScope stream(streamForPartition(factory, 0));
  OutputTypes types;
  const bool isFinished = callOnPartition(spec, handle.get(), arguments, Chunk{}, {1, {0}, {true}},
                                          /*returnsUnused=*/false, types)
                              .isFinished;
  std::vector<Value> outputs;
  outputs.push_back(host::makeLogical(isFinished));
  return outputs;
}

}  // namespace kv::runtime

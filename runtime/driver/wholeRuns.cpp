// What an operation does when all its inputs are materialised values: in the client, without
// chunks. The table at the end has a function for each way in which an operation may run so. The
// results must be those of a run over rows, so built-in operations use the same operators.

#include "driver/wholeRuns.h"

#include <fmt/core.h>

#include <algorithm>
#include <cassert>
#include <iterator>
#include <optional>
#include <string>
#include <utility>

#include "driver/builtInFunctions.h"
#include "driver/randomStreams.h"
#include "driver/slicedCalls.h"
#include "driver/wholeFlows.h"
#include "kv/errors/StepError.h"
#include "kv/runtime/timeValues.h"
#include "operator/processOnce.h"
#include "values/chunkValues.h"
#include "values/columnValues.h"

namespace kv::runtime {

namespace {

using host::Value;

/// Whose random stream a function of materialised values has.
constexpr std::int64_t kFirstPartition = 0;

/// Values as a function gets them: what is broadcast is tagged only if that was asked for.
std::vector<Value> argumentsOf(const OpSpec& spec, const std::vector<const kxArray*>& inputs) {
  std::vector<Value> arguments;
  for (const kxArray* input : inputs) {
    arguments.push_back(spec.passesTagged ? matrix::sharedCopy(input) : withoutBroadcast(input));
  }
  return arguments;
}

std::vector<Value> callHandle(const kxArray* factory, kcos::NameRef slot, std::size_t numOutputs,
                              const std::vector<Value>& inputs) {
  const Value handle = host::getProperty(factory, slot);
  std::vector<const kxArray*> arguments{handle.get()};
  for (const Value& input : inputs) {
    arguments.push_back(input.get());
  }
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

std::vector<Value> shared(const std::vector<const kxArray*>& values) {
  std::vector<Value> copies;
  for (const kxArray* value : values) {
    copies.push_back(matrix::sharedCopy(value));
  }
  return copies;
}

std::vector<Value> callOnWholes(const OpSpec& spec, const kxArray* factory,
                                const std::vector<const kxArray*>& inputs) {
  return callHandle(factory, "FunctionHandle", spec.numOutputs, shared(inputs));
}

/// Refuses inputs of different lengths for a function that takes no value for all rows.
void requireEqualRows(const std::vector<const kxArray*>& inputs) {
  std::optional<std::size_t> rows;
  for (const kxArray* input : inputs) {
    const std::optional<std::size_t> own = isBroadcastArray(input) ? std::nullopt : rowsOf(input);
    if (own && rows && *own != *rows) {
      const auto origin = [](std::size_t count) {
        return fmt::format("a value in memory ({} row{})", count, count == 1 ? "" : "s");
      };
      errors::raiseStep("KALVEX:array:RowsDiffer", {origin(*rows), origin(*own), ""});
    }
    rows = own ? own : rows;
  }
}

/// Calls a function on at most `maxRows` rows of its inputs at a time.
std::vector<Value> callOnSlices(const OpSpec& spec, const kxArray* factory,
                                const std::vector<const kxArray*>& inputs, std::int64_t maxRows) {
  const Value handle = host::getProperty(factory, "FunctionHandle");
  const auto isTooLong = [maxRows](const kxArray* input) {
    return isRows(input) && std::cmp_greater(kxGetM(shapedElements(input)), maxRows);
  };
  if (std::ranges::none_of(inputs, isTooLong)) {
    return callHandle(factory, "FunctionHandle", spec.numOutputs, argumentsOf(spec, inputs));
  }
  const std::vector<Value> given = argumentsOf(spec, inputs);
  std::vector<CallInput> arguments;
  std::int64_t rows = 1;
  for (const Value& input : given) {
    if (isRows(input.get())) {
      arguments.push_back({toArray(input.get()), nullptr});
      rows = arguments.back().rows->rows();
    } else {
      arguments.push_back({std::nullopt, input.get()});
    }
  }
  const StreamScope stream(streamForPartition(factory, kFirstPartition));
  std::vector<Value> outputs;
  OutputTypes types;
  const Chunk all{kFirstPartition, RowOrdinals(0, rows), nullptr, {}};
  for (const Chunk& output : callInSlices(spec, handle.get(), arguments, all, types, maxRows)) {
    outputs.push_back(toValue(output));
  }
  return outputs;
}

std::vector<Value> callOnRows(const OpSpec& spec, const kxArray* factory,
                              const std::vector<const kxArray*>& inputs) {
  if (!spec.op->facts().spreads) {
    requireEqualRows(inputs);
  }
  const Value handle = host::getProperty(factory, "FunctionHandle");
  return callOnSlices(spec, factory, inputs, maxRowsOf(spec, handle.get()));
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

/// The functions of an operation by key that runs on materialised values.
class KeyedFunctions final : public UserFunctions {
 public:
  KeyedFunctions(const OpSpec& spec, const kxArray* factory) : spec_(spec), factory_(factory) {}

  std::vector<Chunk> call(std::size_t /*step*/, const Chunk& rows,
                          std::span<const FunctionInput> inputs, OutputTypes& types) override {
    std::vector<CallInput> arguments;
    for (const FunctionInput& input : inputs) {
      arguments.push_back({input.rows, nullptr});
    }
    const Value handle = host::getProperty(factory_, "FunctionHandle");
    return callInSlices(spec_, handle.get(), arguments, rows, types);
  }

  ReducedValues reduce(std::size_t /*step*/, std::span<const Chunk> partials) override {
    std::vector<Value> values;
    std::vector<const kxArray*> inputs;
    for (const Chunk& partial : partials) {
      values.push_back(toValue(partial));
      inputs.push_back(values.back().get());
    }
    return std::make_shared<const std::vector<Value>>(
        reducePartials(factory_, spec_.functionOutputs(), inputs));
  }

  std::vector<Chunk> partialsOf(std::size_t /*step*/, const ReducedValues& reduced) override {
    std::vector<Chunk> arrays;
    for (const Value& value : *std::static_pointer_cast<const std::vector<Value>>(reduced)) {
      arrays.push_back(toArray(value.get()));
    }
    return arrays;
  }

 private:
  const OpSpec& spec_;
  const kxArray* factory_;
};

std::vector<Value> runOnce(const OpSpec& spec, const std::vector<const kxArray*>& inputs,
                           UserFunctions* functions) {
  std::vector<Chunk> chunks;
  for (const kxArray* input : inputs) {
    chunks.push_back(toChunk(input));
  }
  std::vector<Value> outputs;
  for (const Chunk& chunk : processOnce(*spec.op, spec.label, chunks, functions)) {
    outputs.push_back(toValue(chunk));
  }
  outputs.resize(std::min(outputs.size(), spec.numOutputs));
  return outputs;
}

std::vector<Value> runOperatorOnce(const OpSpec& spec, const kxArray* /*factory*/,
                                   const std::vector<const kxArray*>& inputs) {
  return runOnce(spec, inputs, nullptr);
}

std::vector<Value> callByKey(const OpSpec& spec, const kxArray* factory,
                             const std::vector<const kxArray*>& inputs) {
  KeyedFunctions functions(spec, factory);
  const StreamScope stream(streamForPartition(factory, kFirstPartition));
  return runOnce(spec, inputs, &functions);
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
constexpr Run kRuns[] = {callOnWholes,    callOnRows, callOnRowsForLogical,
                         runFlow,         handOver,   callAndReduce,
                         runOperatorOnce, callByKey,  passOn};

}  // namespace

std::vector<Value> runWhole(const OpSpec& spec, const kxArray* factory,
                            const std::vector<const kxArray*>& inputs) {
  const auto run = static_cast<std::size_t>(spec.wholeRun);
  assert(run < std::size(kRuns));
  return kRuns[run](spec, factory, inputs);
}

std::vector<Value> reducePartials(const kxArray* factory, std::size_t numOutputs,
                                  const std::vector<const kxArray*>& partials) {
  return callHandle(factory, "ReduceHandle", numOutputs, shared(partials));
}

}  // namespace kv::runtime

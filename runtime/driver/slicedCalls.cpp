#include "driver/slicedCalls.h"

#include <fmt/core.h>

#include <algorithm>
#include <cassert>
#include <cmath>
#include <limits>
#include <string>
#include <utility>

#include "column/concatenate.h"
#include "kv/host/errors.h"
#include "values/chunkValues.h"
#include "values/columnValues.h"
#include "values/hostNames.h"

namespace kv::runtime {

namespace {

constexpr std::int64_t kUnbounded = std::numeric_limits<std::int64_t>::max();

std::vector<Chunk> callOnce(const OpSpec& spec, const kxArray* handle,
                            std::span<const CallInput> inputs, const Chunk& rows,
                            OutputTypes& types) {
  std::vector<host::Value> values;
  std::vector<const kxArray*> arguments{handle};
  for (const CallInput& input : inputs) {
    if (input.rows) {
      values.push_back(toArgument(*input.rows));
    }
    arguments.push_back(input.rows ? values.back().get() : input.value);
  }
  const std::vector<host::Value> outputs =
      host::callMany("feval", static_cast<int>(spec.functionOutputs()), arguments);
  std::vector<Chunk> results;
  for (std::size_t i = 0; i < spec.functionOutputs(); ++i) {
    const kxArray* value = i < outputs.size() ? outputs[i].get() : nullptr;
    results.push_back(takeResult(spec, i, value, rows, types));
  }
  return results;
}

Chunk givenRows(const Chunk& rows, std::int64_t first, std::int64_t count) {
  return {rows.partition, rows.ordinals.slice(first, count), nullptr, {}};
}

std::vector<CallInput> sliceOf(std::span<const CallInput> inputs, std::int64_t first,
                               std::int64_t count) {
  std::vector<CallInput> slices(inputs.begin(), inputs.end());
  for (CallInput& input : slices) {
    if (input.rows) {
      input.rows = slice(*input.rows, first, count);
    }
  }
  return slices;
}

}  // namespace

std::int64_t maxRowsOf(const OpSpec& spec, const kxArray* functionHandle) {
  if (!kxIsA(functionHandle, kFunctionHandle)) {
    return kUnbounded;
  }
  const double bound = kxGetScalar(host::getProperty(functionHandle, "MaxNumSlices").get());
  if (std::isinf(bound) || bound >= static_cast<double>(kUnbounded)) {
    return kUnbounded;
  }
  if (!(bound >= 1)) {
    host::raise("KALVEX:array:MaxNumSlices", {spec.label, fmt::format("{}", bound)});
  }
  return static_cast<std::int64_t>(bound);
}

Chunk takeResult(const OpSpec& spec, std::size_t output, const kxArray* value, const Chunk& rows,
                 OutputTypes& types) {
  if (value == nullptr) {
    host::raise("KALVEX:array:MissingOutput",
                {spec.label, std::to_string(output + 1), std::to_string(spec.functionOutputs())});
  }
  Chunk result = toArray(asReturned(matrix::sharedCopy(value)).get());
  if (result.rows() > 0) {
    types.add(spec.label, output, result.arrayType(), GivenRows::of(rows));
  }
  return result;
}

std::vector<Chunk> callInSlices(const OpSpec& spec, const kxArray* functionHandle,
                                std::span<const CallInput> inputs, const Chunk& rows,
                                OutputTypes& types) {
  return callInSlices(spec, functionHandle, inputs, rows, types, maxRowsOf(spec, functionHandle));
}

std::vector<Chunk> callInSlices(const OpSpec& spec, const kxArray* functionHandle,
                                std::span<const CallInput> inputs, const Chunk& rows,
                                OutputTypes& types, std::int64_t maxRows) {
  assert(maxRows >= 1);
  assert(std::ranges::all_of(inputs, [&rows](const CallInput& input) {
    return !input.rows || input.rows->rows() == rows.rows();
  }));
  if (rows.rows() <= maxRows) {
    return callOnce(spec, functionHandle, inputs, rows, types);
  }
  std::vector<std::vector<Chunk>> parts(spec.functionOutputs());
  for (std::int64_t first = 0; first < rows.rows(); first += maxRows) {
    const std::int64_t count = std::min(maxRows, rows.rows() - first);
    std::vector<Chunk> outputs = callOnce(spec, functionHandle, sliceOf(inputs, first, count),
                                          givenRows(rows, first, count), types);
    for (std::size_t i = 0; i < outputs.size(); ++i) {
      parts[i].push_back(std::move(outputs[i]));
    }
  }
  std::vector<Chunk> joined;
  for (const std::vector<Chunk>& part : parts) {
    joined.push_back(concatenateArrays(part));
  }
  return joined;
}

}  // namespace kv::runtime

#include "driver/partitionCalls.h"

#include <array>
#include <cassert>
#include <string>
#include <string_view>
#include <utility>

#include "driver/frames.h"
#include "kv/host/errors.h"
#include "values/chunkValues.h"

namespace kv::runtime {

namespace {

using host::Value;

constexpr std::string_view kInfoFields[] = {"PartitionId", "NumPartitions",
                                            "RelativeIndexInPartition", "IsLastChunk"};

Value row(std::size_t size, kxClassID type) {
  return matrix::from_kalvex(kxCreateNumericArray(std::array<std::size_t, 2>{1, size}, type));
}

Value infoOf(std::int64_t partition, const PartitionPlace& place) {
  const Value firstRows = row(place.firstRow.size(), kxDOUBLE_CLASS);
  auto* numbers = static_cast<double*>(kxGetMutableData(firstRows.get()));
  const Value areLast = row(place.isLast.size(), kxLOGICAL_CLASS);
  auto* flags = static_cast<bool*>(kxGetMutableData(areLast.get()));
  for (std::size_t i = 0; i < place.firstRow.size(); ++i) {
    numbers[i] = static_cast<double>(place.firstRow[i] + 1);
    flags[i] = place.isLast[i];
  }
  Value info = matrix::from_kalvex(kxCreateStructMatrix(1, 1, kInfoFields));
  const auto set = [&](std::string_view field, Value value) {
    kxSetField(info.get(), 0, field, value.release());
  };
  set("PartitionId", host::makeDouble(static_cast<double>(partition + 1)));
  set("NumPartitions", host::makeDouble(static_cast<double>(place.numPartitions)));
  set("RelativeIndexInPartition", matrix::sharedCopy(firstRows.get()));
  set("IsLastChunk", matrix::sharedCopy(areLast.get()));
  return info;
}

[[noreturn]] void refuse(const OpSpec& spec, const char* expected, const kxArray* actual) {
  host::raise("KALVEX:array:PartitionResult",
              {spec.label, expected,
               actual == nullptr ? "nothing" : std::string("a ") + kxGetClassName(actual)});
}

/// One that is handed rows need not return anything.
bool toFinished(const OpSpec& spec, const kxArray* value) {
  if (spec.endsRows() && (value == nullptr || kxIsEmpty(value))) {
    return false;
  }
  if (value == nullptr || kxGetClassID(value) != kxLOGICAL_CLASS || !kxIsScalar(value)) {
    refuse(spec, "first whether it is finished, as one logical value", value);
  }
  return kxGetLogicals(value)[0];
}

/// The unused rows of each input with rows, from a cell with an entry for each input; an empty
/// cell, and an empty entry, mean none.
std::vector<std::optional<Chunk>> toUnused(const OpSpec& spec, const kxArray* cell,
                                           std::span<const CallInput> inputs) {
  if (cell == nullptr || kxGetClassID(cell) != kxCELL_CLASS) {
    refuse(spec, "a cell of unused rows after that", cell);
  }
  const std::size_t count = kxGetNumberOfElements(cell);
  if (count != 0 && count != inputs.size()) {
    host::raise("KALVEX:array:PartitionResult",
                {spec.label,
                 "a cell with unused rows of each of " + std::to_string(inputs.size()) + " inputs",
                 "one with " + std::to_string(count)});
  }
  std::vector<std::optional<Chunk>> unused;
  for (std::size_t i = 0; i < inputs.size(); ++i) {
    if (inputs[i].rows) {
      const kxArray* rows = count > 0 ? kxGetCell(cell, i) : nullptr;
      unused.push_back(rows != nullptr && !kxIsEmpty(rows) ? std::optional(toArray(rows))
                                                           : std::nullopt);
    }
  }
  return unused;
}

}  // namespace

PartitionResults callOnPartition(const OpSpec& spec, const kxArray* functionHandle,
                                 std::span<const CallInput> inputs, const Chunk& rows,
                                 const PartitionPlace& place, bool returnsUnused,
                                 OutputTypes& types) {
  if (FrameReceiver* receiver = receiverOf(functionHandle)) {
    return {.isFinished = !receiver->take(columnsOf(inputs))};
  }
  assert(rows.partition >= 0 && rows.partition <= place.numPartitions);
  std::vector<Value> values;
  values.push_back(infoOf(rows.partition, place));
  for (const CallInput& input : inputs) {
    values.push_back(input.rows ? toArgument(*input.rows) : matrix::sharedCopy(input.value));
  }
  std::vector<const kxArray*> arguments{functionHandle};
  for (const Value& value : values) {
    arguments.push_back(value.get());
  }
  const std::size_t first = returnsUnused ? 2 : 1;
  const std::size_t numOutputs = spec.endsRows() ? 0 : spec.numOutputs;
  std::vector<Value> outputs =
      host::callMany("feval", static_cast<int>(first + numOutputs), arguments);
  outputs.resize(first + numOutputs);
  PartitionResults results{.isFinished = toFinished(spec, outputs[0].get())};
  if (returnsUnused) {
    results.unused = toUnused(spec, outputs[1].get(), inputs);
  }
  for (std::size_t i = 0; i < numOutputs; ++i) {
    results.outputs.push_back(takeResult(spec, i, outputs[first + i].get(), rows, types));
  }
  return results;
}

}  // namespace kv::runtime

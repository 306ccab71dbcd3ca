#include "driver/materialisedValues.h"

#include <algorithm>
#include <cassert>
#include <iterator>
#include <span>
#include <string>
#include <utility>

#include "column/joinChunks.h"
#include "values/chunkValues.h"
#include "values/columnValues.h"

namespace kv::runtime {

namespace {

using host::Value;

/// The rows of all chunks, in order.
Chunk join(std::vector<std::vector<Chunk>> partitions) {
  std::vector<Chunk> all;
  for (std::vector<Chunk>& chunks : partitions) {
    std::ranges::move(chunks, std::back_inserter(all));
  }
  partitions.clear();
  return all.empty() ? Chunk{} : joinChunks(std::move(all));
}

/// A value with its places, completed by what they say about its types.
MaterialisedValue placed(const Chunk& whole, RowPlaces places) {
  places.isUntyped = std::ranges::any_of(
      whole.columns, [](const Column& column) { return column.type() == ElementType::Unknown; });
  for (const Column& column : whole.columns) {
    places.isNullable.push_back(column.isNullable());
  }
  return {toValue(whole), std::make_shared<const RowPlaces>(std::move(places))};
}

}  // namespace

std::vector<MaterialisedValue> materialisedValues(std::vector<Value> values) {
  std::vector<MaterialisedValue> wholes;
  for (Value& value : values) {
    wholes.push_back({std::move(value)});
  }
  return wholes;
}

MaterialisedValue joinRows(std::vector<std::vector<Chunk>> partitions,
                           std::shared_ptr<const RowCut> cut, std::string origin,
                           std::int64_t frameRows) {
  RowPlaces places = RowPlaces::ofPartitions(partitions, std::move(cut));
  places.origin = std::move(origin);
  places.frameRows = frameRows;
  return placed(join(std::move(partitions)), std::move(places));
}

std::vector<MaterialisedValue> madeRows(const std::vector<Chunk>& arrays,
                                        std::vector<std::int64_t> partitionRows,
                                        std::string rowSpace, const std::string& origin) {
  if (partitionRows.empty()) {
    std::int64_t left = arrays.front().rows();
    do {
      partitionRows.push_back(std::min(kMadeRows, left));
      left -= partitionRows.back();
    } while (left > 0);
  }
  RowPlaces places{.firstRow = {0}, .origin = origin};
  for (const std::int64_t rows : partitionRows) {
    places.firstRow.push_back(places.rows() + rows);
  }
  auto cut = std::make_shared<RowCut>(RowCut{std::move(rowSpace), std::move(partitionRows)});
  places.cut = std::move(cut);
  std::vector<MaterialisedValue> values;
  for (const Chunk& array : arrays) {
    values.push_back(placed(array, places));
  }
  return values;
}

MaterialisedValue inputValue(const PlanInput& input, const PlanHandles& handles,
                             const MaterialisedValues& values) {
  if (input.task < 0) {
    return {matrix::sharedCopy(handles.values[input.value].get()), input.places};
  }
  const MaterialisedValue& whole = values[static_cast<std::size_t>(input.task)].at(input.output);
  assert(whole.value != nullptr);
  return {matrix::sharedCopy(whole.value.get()), whole.places};
}

}  // namespace kv::runtime

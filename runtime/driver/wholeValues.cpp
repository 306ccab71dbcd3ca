#include "driver/wholeValues.h"

#include <algorithm>
#include <span>
#include <string>
#include <utility>

#include "column/concatenate.h"
#include "values/chunkValues.h"
#include "values/columnValues.h"

namespace kv::runtime {

namespace {

using host::Value;

/// The rows of all chunks, in order.
Chunk join(const std::vector<std::vector<Chunk>>& partitions) {
  std::vector<Chunk> all;
  for (const std::vector<Chunk>& chunks : partitions) {
    all.insert(all.end(), chunks.begin(), chunks.end());
  }
  if (all.empty()) {
    return {};
  }
  return all.front().names != nullptr ? concatenateTables(all) : concatenateArrays(all);
}

}  // namespace

std::vector<WholeValue> wholeValues(std::vector<Value> values) {
  std::vector<WholeValue> wholes;
  for (Value& value : values) {
    wholes.push_back({std::move(value)});
  }
  return wholes;
}

WholeValue joinRows(const std::vector<std::vector<Chunk>>& partitions,
                    std::shared_ptr<const RowCut> cut, std::string origin, std::int64_t frameRows) {
  const Chunk whole = join(partitions);
  RowPlaces places = RowPlaces::ofPartitions(partitions, std::move(cut));
  places.isUntyped = std::ranges::any_of(
      whole.columns, [](const Column& column) { return column.type() == ElementType::Unknown; });
  for (const Column& column : whole.columns) {
    places.isNullable.push_back(column.isNullable());
  }
  places.origin = std::move(origin);
  places.frameRows = frameRows;
  return {toValue(whole), std::make_shared<const RowPlaces>(std::move(places))};
}

WholeValue inputValue(const PlanInput& input, const PlanHandles& handles,
                      const WholeValues& values) {
  if (input.task < 0) {
    return {matrix::sharedCopy(handles.values[input.value].get()), input.places};
  }
  const WholeValue& whole = values[static_cast<std::size_t>(input.task)].at(input.output);
  return {matrix::sharedCopy(whole.value.get()), whole.places};
}

}  // namespace kv::runtime

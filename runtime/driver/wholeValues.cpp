#include "driver/wholeValues.h"

#include <algorithm>
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

}  // namespace

std::vector<WholeValue> wholeValues(std::vector<Value> values) {
  std::vector<WholeValue> wholes;
  for (Value& value : values) {
    wholes.push_back({std::move(value)});
  }
  return wholes;
}

WholeValue joinRows(std::vector<std::vector<Chunk>> partitions, std::shared_ptr<const RowCut> cut,
                    std::string origin, std::int64_t frameRows) {
  RowPlaces places = RowPlaces::ofPartitions(partitions, std::move(cut));
  const Chunk whole = join(std::move(partitions));
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

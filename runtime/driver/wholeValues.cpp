#include "driver/wholeValues.h"

#include <algorithm>
#include <string>
#include <utility>

#include "column/concatenate.h"
#include "values/chunkValues.h"
#include "values/columnValues.h"

namespace kv::runtime {

namespace {

using host::Value;

/// Columns of one name over all chunks.
Column joinColumn(const std::vector<std::vector<Chunk>>& partitions, std::size_t index) {
  std::vector<Column> parts;
  for (const std::vector<Chunk>& chunks : partitions) {
    for (const Chunk& chunk : chunks) {
      parts.push_back(chunk.columns[index]);
    }
  }
  return concatenate(parts);
}

const Chunk* firstChunk(const std::vector<std::vector<Chunk>>& partitions) {
  for (const std::vector<Chunk>& chunks : partitions) {
    if (!chunks.empty()) {
      return &chunks.front();
    }
  }
  return nullptr;
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
  Chunk whole;
  if (const Chunk* first = firstChunk(partitions)) {
    whole.names = first->names;
    for (std::size_t i = 0; i < first->columns.size(); ++i) {
      whole.columns.push_back(joinColumn(partitions, i));
    }
  }
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

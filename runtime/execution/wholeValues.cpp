#include "execution/wholeValues.h"

#include <algorithm>
#include <array>
#include <string>
#include <string_view>
#include <utility>

#include "values/columnValues.h"
#include "values/hostNames.h"

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

/// The rows of what `toColumn` makes of a value; none if it refuses the value.
std::optional<std::size_t> rowsOfColumn(const kxArray* value) {
  const Value held = withoutBroadcast(value);
  if (!isColumn(held.get())) {
    return std::nullopt;
  }
  const bool isOneText = kxGetClassID(held.get()) == kxCHAR_CLASS;
  return isOneText ? 1 : kxGetNumberOfElements(held.get());
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

WholeValue joinRows(const std::vector<std::vector<Chunk>>& partitions,
                    std::shared_ptr<const RowCut> cut, std::string origin) {
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
  places.origin = std::move(origin);
  return {toValue(whole), std::make_shared<const RowPlaces>(std::move(places))};
}

std::optional<std::size_t> rowsOf(const kxArray* value) {
  if (!kxIsA(value, "table")) {
    return rowsOfColumn(value);
  }
  const Value columns = host::getProperty(value, "Columns");
  std::optional<std::size_t> rows = 0;
  for (std::size_t i = 0; i < kxGetNumberOfElements(columns.get()); ++i) {
    const std::optional<std::size_t> ofColumn = rowsOfColumn(kxGetCell(columns.get(), i));
    if (i > 0 && ofColumn != rows) {
      return std::nullopt;
    }
    rows = ofColumn;
  }
  return rows;
}

Chunk toChunk(const kxArray* value) {
  Chunk chunk;
  if (kxIsA(value, "table")) {
    const Value names = host::getProperty(value, "VariableNames");
    const Value columns = host::getProperty(value, "Columns");
    chunk.names = std::make_shared<const std::vector<std::string>>(host::toTexts(names.get()));
    for (std::size_t i = 0; i < kxGetNumberOfElements(columns.get()); ++i) {
      chunk.columns.push_back(toColumn(kxGetCell(columns.get(), i)));
    }
  } else {
    chunk.columns.push_back(toColumn(value));
  }
  const std::int64_t rows = chunk.columns.empty() ? 0 : chunk.columns.front().rows();
  chunk.ordinals = RowOrdinals(0, rows);
  return chunk;
}

Value toValue(const Chunk& chunk) {
  if (chunk.names == nullptr && chunk.columns.size() == 1) {
    return toValue(chunk.columns.front());
  }
  std::vector<Value> columns;
  std::vector<const kxArray*> inputs;
  for (const Column& column : chunk.columns) {
    columns.push_back(toValue(column));
    inputs.push_back(columns.back().get());
  }
  const Value label = host::makeChars("VariableNames");
  const Value names = host::makeStringRow(chunk.names ? *chunk.names : std::vector<std::string>{});
  inputs.push_back(label.get());
  inputs.push_back(names.get());
  return host::call("table", inputs);
}

WholeValue inputValue(const PlanInput& input, const WholeValues& values) {
  if (input.task < 0) {
    return {matrix::sharedCopy(input.value.get()), input.places};
  }
  const WholeValue& whole = values[static_cast<std::size_t>(input.task)].at(input.output);
  return {matrix::sharedCopy(whole.value.get()), whole.places};
}

}  // namespace kv::runtime

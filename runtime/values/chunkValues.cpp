#include "values/chunkValues.h"

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "values/columnValues.h"

namespace kv::runtime {

namespace {

using host::Value;

/// The rows of what `toColumn` makes of a value; none if it refuses the value.
std::optional<std::size_t> rowsOfColumn(const kxArray* value) {
  const Value held = withoutBroadcast(value);
  if (!isColumn(held.get())) {
    return std::nullopt;
  }
  const bool isOneText = kxGetClassID(held.get()) == kxCHAR_CLASS;
  return isOneText ? 1 : kxGetNumberOfElements(held.get());
}

}  // namespace

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

}  // namespace kv::runtime

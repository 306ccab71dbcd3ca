// Arrays and tables between the engine and the host. A column of numbers without missing elements
// shares its memory with the host value; anything else is copied: texts, arrays of several
// columns, and nullable columns, which become doubles with marks.

#include "values/chunkValues.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "column/ResultBuffer.h"
#include "column/arrays.h"
#include "column/elementTypes.h"
#include "column/joinChunks.h"
#include "kv/host/errors.h"
#include "kv/runtime/timeValues.h"
#include "values/columnValues.h"
#include "values/missingMarks.h"

namespace kv::runtime {

namespace {

using host::Value;

/// The rows of an array; none of a value that is none.
std::optional<std::size_t> rowsOfArray(const kxArray* value) {
  const Value held = withoutBroadcast(value);
  if (!isArray(held.get())) {
    return std::nullopt;
  }
  if (isCharRow(held.get())) {
    return 1;
  }
  const kxArray* shaped = shapedElements(held.get());
  return kxIsEmpty(shaped) ? 0 : kxGetM(shaped);
}

/// The dimensions after the first; none of a char row, or if one of them is 0.
/// Errors: "KALVEX:array:TooManyColumns".
Dimensions trailingOf(const kxArray* array) {
  if (isCharRow(array)) {
    return {};
  }
  Dimensions trailing;
  std::size_t most = kMaxArrayColumns;
  const auto sizes = kxGetDimensions(shapedElements(array)).subspan(1);
  if (std::ranges::find(sizes, std::size_t{0}) != sizes.end()) {
    return {};
  }
  for (const std::size_t size : sizes) {
    if (size > most) {
      const Dimensions all(sizes.begin(), sizes.end());
      host::raise("KALVEX:array:TooManyColumns",
                  {describeSize(all), std::to_string(kMaxArrayColumns)});
    }
    most /= size;
    trailing.push_back(static_cast<std::int64_t>(size));
  }
  return withoutTrailingOnes(std::move(trailing));
}

Value textsOf(const Chunk& array) {
  const auto rows = static_cast<std::size_t>(array.rows());
  Value value = Torvane::String::createStringArray(rows, array.columns.size());
  std::size_t element = 0;
  for (const Column& column : array.columns) {
    const Value texts = toValue(column);
    for (std::size_t row = 0; row < rows; ++row, ++element) {
      if (const auto text = Torvane::String::getString(texts.get(), row)) {
        Torvane::String::setString(value.get(), element, *text);
      }
    }
  }
  kxSetDimensions(value.get(), dimensionsOf(array));
  return value;
}

/// The elements of a large array; they count against the memory limit.
Value largeElementsOf(const Chunk& array, std::int64_t bytes) {
  ResultBuffer elements(bytes);
  for (const Column& column : array.columns) {
    const Value values = toValue(column);
    elements.append(kxGetData(shapedElements(values.get())),
                    column.rows() * static_cast<std::int64_t>(elementSize(column.type())));
  }
  const std::shared_ptr<arrow::Buffer> all = elements.finish();
  return matrix::from_kalvex(
      kxCreateBorrowedArray(dimensionsOf(array), classOf(array.type()), all->data(), all));
}

Value smallElementsOf(const Chunk& array) {
  Value value =
      matrix::from_kalvex(kxCreateNumericArray(dimensionsOf(array), classOf(array.type())));
  auto* target = static_cast<char*>(kxGetMutableData(value.get()));
  for (const Column& column : array.columns) {
    const Value elements = toValue(column);
    const auto bytes = static_cast<std::size_t>(column.rows()) * elementSize(column.type());
    if (bytes > 0) {
      std::memcpy(target, kxGetData(shapedElements(elements.get())), bytes);
    }
    target += bytes;
  }
  return value;
}

/// Of any type but texts.
Value elementsOf(const Chunk& array) {
  const auto bytes = static_cast<std::int64_t>(static_cast<std::size_t>(array.rows()) *
                                               array.columns.size() * elementSize(array.type()));
  Value value = bytes >= kLargeResultBytes ? largeElementsOf(array, bytes) : smallElementsOf(array);
  return isTime(array.type()) ? makeTimes(array.type(), std::move(value)) : std::move(value);
}

/// `asDoubles`: with marks of missing elements.
Value toValue(const Chunk& array, bool asDoubles) {
  if (asDoubles) {
    return toMarkedDoubles(array);
  }
  if (array.columns.size() == 1) {
    return toValue(array.columns.front());
  }
  return array.type() == ElementType::String ? textsOf(array) : elementsOf(array);
}

}  // namespace

std::optional<std::size_t> rowsOf(const kxArray* value) {
  if (!kxIsA(value, "table")) {
    return rowsOfArray(value);
  }
  const Value columns = host::getProperty(value, "Columns");
  std::optional<std::size_t> rows = 0;
  for (std::size_t i = 0; i < kxGetNumberOfElements(columns.get()); ++i) {
    const std::optional<std::size_t> ofColumn = rowsOfArray(kxGetCell(columns.get(), i));
    if (i > 0 && ofColumn != rows) {
      return std::nullopt;
    }
    rows = ofColumn;
  }
  return rows;
}

Chunk toArray(const kxArray* value) {
  const Value held = withoutBroadcast(value);
  const Column elements = elementsOf(held.get());
  Chunk array{.trailing = trailingOf(held.get())};
  const std::size_t numColumns = columnsIn(array.trailing);
  const std::int64_t rows = elements.rows() / static_cast<std::int64_t>(numColumns);
  array.ordinals = RowOrdinals(0, rows);
  for (std::size_t i = 0; i < numColumns; ++i) {
    array.columns.push_back(elements.slice(static_cast<std::int64_t>(i) * rows, rows));
  }
  return array;
}

Chunk toChunk(const kxArray* value) {
  if (!kxIsA(value, "table")) {
    return toArray(value);
  }
  Chunk table;
  const Value names = host::getProperty(value, "VariableNames");
  const Value columns = host::getProperty(value, "Columns");
  table.names = std::make_shared<const std::vector<std::string>>(host::toTexts(names.get()));
  for (std::size_t i = 0; i < kxGetNumberOfElements(columns.get()); ++i) {
    table.columns.push_back(toColumn(kxGetCell(columns.get(), i)));
  }
  const std::int64_t rows = table.columns.empty() ? 0 : table.columns.front().rows();
  table.ordinals = RowOrdinals(0, rows);
  return table;
}

Value toValue(const Chunk& chunk) {
  if (chunk.names == nullptr && !chunk.columns.empty()) {
    return toValue(chunk, std::ranges::any_of(chunk.columns, [](const Column& column) {
                     return column.isNullable() && column.hasNulls();
                   }));
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

Value toArgument(const Chunk& array) { return toValue(array, array.columns.front().isNullable()); }

}  // namespace kv::runtime

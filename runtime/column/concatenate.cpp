#include "column/concatenate.h"

#include <arrow/array/concatenate.h>
#include <arrow/array/util.h>
#include <arrow/scalar.h>

#include <algorithm>
#include <cassert>
#include <memory>
#include <ranges>
#include <utility>

#include "column/allocate.h"
#include "column/arrays.h"
#include "column/pool.h"

namespace kv::runtime {

namespace {

/// One range if the parts follow on each other, else a list.
RowOrdinals join(std::span<const Chunk> chunks) {
  std::int64_t first = 0;
  std::int64_t rows = 0;
  bool isRange = true;
  for (const Chunk& chunk : chunks) {
    const RowOrdinals& part = chunk.ordinals;
    if (part.rows() > 0) {
      first = rows == 0 ? part.at(0) : first;
      isRange = isRange && part.isRange() && part.at(0) == first + rows;
      rows += part.rows();
    }
  }
  if (isRange) {
    return {first, rows};
  }
  auto list = std::make_shared<OrdinalList>(currentResource());
  list->reserve(static_cast<std::size_t>(rows));
  for (const Chunk& chunk : chunks) {
    for (std::int64_t row = 0; row < chunk.rows(); ++row) {
      list->push_back(chunk.ordinals.at(row));
    }
  }
  return RowOrdinals(std::move(list));
}

}  // namespace

Column repeat(const Column& value, std::int64_t rows) {
  const auto scalar = arrow::MakeArray(value.data())->GetScalar(0);
  checkArrow(scalar.status());
  const auto repeated = arrow::MakeArrayFromScalar(**scalar, rows, currentPool());
  checkArrow(repeated.status());
  const Column column(value.type(), (*repeated)->data());
  return value.isNullable() ? column.asNullable() : column;
}

Column concatenate(const std::vector<Column>& columns) {
  const auto hasRows = [](const Column& column) { return column.rows() > 0; };
  const auto isKnown = [](const Column& column) { return column.type() != ElementType::Unknown; };
  const auto first = std::ranges::find_if(columns, hasRows);
  if (first == columns.end()) {
    const auto known = std::ranges::find_if(columns, isKnown);
    return known != columns.end() ? *known : emptyColumn(ElementType::Unknown);
  }
  arrow::ArrayVector parts;
  for (const Column& column : std::span(first, columns.end()) | std::views::filter(hasRows)) {
    assert(column.type() == first->type());
    parts.push_back(arrow::MakeArray(column.data()));
  }
  if (parts.size() == 1) {
    return *first;
  }
  arrow::Result<std::shared_ptr<arrow::Array>> joined = arrow::Concatenate(parts, currentPool());
  checkArrow(joined.status());
  const Column whole(first->type(), (*joined)->data());
  return first->isNullable() ? whole.asNullable() : whole;
}

Chunk concatenateArrays(std::span<const Chunk> arrays) {
  const auto isKnown = [](const Chunk& array) { return array.type() != ElementType::Unknown; };
  const auto typed = std::ranges::find_if(arrays, [](const Chunk& a) { return a.rows() > 0; });
  const auto known = typed != arrays.end() ? typed : std::ranges::find_if(arrays, isKnown);
  if (known == arrays.end()) {
    return emptyArray({});
  }
  std::vector<std::vector<Column>> parts(known->columns.size());
  std::int64_t rows = 0;
  for (const Chunk& array : arrays) {
    assert(array.rows() == 0 || array.trailing == known->trailing);
    rows += array.rows();
    for (std::size_t i = 0; i < parts.size() && (array.rows() > 0 || &array == &*known); ++i) {
      parts[i].push_back(array.columns[i]);
    }
  }
  Chunk whole{.ordinals = RowOrdinals(0, rows), .trailing = known->trailing};
  for (const std::vector<Column>& part : parts) {
    whole.columns.push_back(concatenate(part));
  }
  return whole;
}

Chunk concatenateTables(std::span<const Chunk> tables) {
  assert(!tables.empty());
  Chunk whole{.names = tables.front().names};
  for (std::size_t i = 0; i < tables.front().columns.size(); ++i) {
    std::vector<Column> parts;
    for (const Chunk& table : tables) {
      assert(table.columns.size() == whole.names->size());
      parts.push_back(table.columns[i]);
    }
    whole.columns.push_back(concatenate(parts));
  }
  const std::int64_t rows = whole.columns.empty() ? 0 : whole.columns.front().rows();
  whole.ordinals = RowOrdinals(0, rows);
  return whole;
}

Chunk concatenate(std::span<const Chunk> chunks) {
  assert(!chunks.empty());
  const Chunk& first = chunks.front();
  if (chunks.size() == 1) {
    return first;
  }
  const bool isArray = first.names == nullptr && !first.columns.empty();
  Chunk whole = isArray ? concatenateArrays(chunks) : concatenateTables(chunks);
  whole.partition = first.partition;
  whole.ordinals = join(chunks);
  return whole;
}

Chunk slice(const Chunk& chunk, std::int64_t first, std::int64_t count) {
  Chunk part{chunk.partition, chunk.ordinals.slice(first, count), chunk.names, {}, chunk.trailing};
  for (const Column& column : chunk.columns) {
    part.columns.push_back(column.slice(first, count));
  }
  return part;
}

}  // namespace kv::runtime

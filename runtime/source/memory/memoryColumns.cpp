// Columns over memory that the caller owns. Elements that follow on each other are used in place;
// others, such as a column of an array in row-major order, are gathered when they are read. The
// same holds for what Arrow's types and ours have in different layouts.

#include <arrow/array/builder_binary.h>
#include <arrow/buffer.h>
#include <fmt/core.h>

#include <cstring>
#include <set>
#include <string>
#include <utility>

#include "column/allocate.h"
#include "column/arrays.h"
#include "column/borrowed.h"
#include "column/elementTypes.h"
#include "column/pool.h"
#include "kv/errors/StepError.h"
#include "kv/runtime/memory.h"
#include "source/memory/ArrayDatastore.h"
#include "source/memory/cutOf.h"

namespace kv::runtime {

namespace {

class BorrowedElements final : public ArrayColumn {
 public:
  explicit BorrowedElements(MemoryColumn column) : column_(std::move(column)) {}

  ElementType type() const override { return column_.type; }

  Column elements(std::int64_t first, std::int64_t count) const override {
    return visitNumeric(type(), [&]<class T>() { return elementsAs<T>(first, count); });
  }

 private:
  template <class T>
  Column elementsAs(std::int64_t first, std::int64_t count) const {
    constexpr auto kSize = static_cast<std::int64_t>(sizeof(T));
    if (count == 0) {
      return emptyColumn(type());
    }
    const auto* from = static_cast<const char*>(column_.data) + first * column_.strideBytes;
    const bool isAligned = reinterpret_cast<std::uintptr_t>(from) % alignof(T) == 0;
    if (column_.strideBytes == kSize && isAligned) {
      return {type(), count, borrowedBuffer(from, count * kSize, column_.owner)};
    }
    auto buffer = allocateBuffer(count * kSize);
    auto* to = buffer->mutable_data();
    for (std::int64_t i = 0; i < count; ++i) {
      std::memcpy(to + i * kSize, from + i * column_.strideBytes, sizeof(T));
    }
    return {type(), count, std::move(buffer)};
  }

  MemoryColumn column_;
};

class BorrowedTexts final : public ArrayColumn {
 public:
  explicit BorrowedTexts(MemoryColumn column) : column_(std::move(column)) {}

  ElementType type() const override { return ElementType::String; }

  Column elements(std::int64_t first, std::int64_t count) const override {
    arrow::StringBuilder texts(currentPool());
    checkArrow(texts.Reserve(count));
    for (std::int64_t row = first; row < first + count; ++row) {
      const std::optional<std::string_view> text = column_.textAt(row);
      checkArrow(text ? texts.Append(*text) : texts.AppendNull());
    }
    std::shared_ptr<arrow::ArrayData> data;
    checkArrow(texts.FinishInternal(&data));
    return {ElementType::String, std::move(data)};
  }

 private:
  MemoryColumn column_;
};

class KeptColumn final : public ArrayColumn {
 public:
  explicit KeptColumn(Column column) : column_(std::move(column)) {}

  ElementType type() const override { return column_.type(); }
  bool isNullable() const override { return column_.isNullable(); }
  Column elements(std::int64_t first, std::int64_t count) const override {
    return column_.slice(first, count);
  }

 private:
  Column column_;
};

std::int64_t bytesOf(const std::vector<MemoryColumn>& columns) {
  std::int64_t bytes = 0;
  for (const MemoryColumn& column : columns) {
    bytes += column.textAt ? kTextBytes : static_cast<std::int64_t>(elementSize(column.type));
  }
  return bytes;
}

std::vector<std::shared_ptr<const ArrayColumn>> borrowed(std::vector<MemoryColumn> columns) {
  std::vector<std::shared_ptr<const ArrayColumn>> made;
  for (MemoryColumn& column : columns) {
    if (column.textAt) {
      made.push_back(std::make_shared<BorrowedTexts>(std::move(column)));
    } else {
      made.push_back(std::make_shared<BorrowedElements>(std::move(column)));
    }
  }
  return made;
}

std::vector<std::string> namesOf(const std::vector<MemoryColumn>& columns) {
  std::set<std::string_view> known;
  std::vector<std::string> names;
  for (const MemoryColumn& column : columns) {
    if (!known.insert(column.name).second) {
      errors::raiseStep("KALVEX:array:SameName", {column.name});
    }
    names.push_back(column.name);
  }
  return names;
}

}  // namespace

std::shared_ptr<const Datastore> openColumns(std::vector<MemoryColumn> columns, std::int64_t rows,
                                             const CutRequest& request) {
  PositionCut cut = cutOf(rows, bytesOf(columns), request);
  std::vector<std::string> names = namesOf(columns);
  return std::make_shared<ArrayDatastore>(
      ArrayTable{fmt::format("a table of {} rows in memory", rows),
                 std::move(cut),
                 std::move(names),
                 {},
                 borrowed(std::move(columns))});
}

std::shared_ptr<const Datastore> openChunk(const Chunk& chunk, const CutRequest& request) {
  std::int64_t bytes = 0;
  std::vector<std::shared_ptr<const ArrayColumn>> columns;
  for (const Column& column : chunk.columns) {
    bytes += column.type() == ElementType::String
                 ? kTextBytes
                 : static_cast<std::int64_t>(elementSize(column.type()));
    columns.push_back(std::make_shared<KeptColumn>(column));
  }
  return std::make_shared<ArrayDatastore>(ArrayTable{
      fmt::format("a value of {} rows", chunk.rows()), cutOf(chunk.rows(), bytes, request),
      chunk.names == nullptr ? std::vector<std::string>{} : *chunk.names, chunk.trailing,
      std::move(columns)});
}

std::shared_ptr<const Datastore> openArray(std::vector<MemoryColumn> columns, std::int64_t rows,
                                           Dimensions trailing, const CutRequest& request) {
  PositionCut cut = cutOf(rows, bytesOf(columns), request);
  return std::make_shared<ArrayDatastore>(
      ArrayTable{fmt::format("an array of {} rows in memory", rows),
                 std::move(cut),
                 {},
                 withoutTrailingOnes(std::move(trailing)),
                 borrowed(std::move(columns))});
}

}  // namespace kv::runtime

// A filter is the most common step, so it runs without branches: the indices of kept rows are
// written once, and every column is copied through them. If all rows are kept, the chunk itself is
// returned.

#include "kv/runtime/selectRows.h"

#include <arrow/array/data.h>
#include <arrow/type.h>
#include <fmt/format.h>

#include <cassert>
#include <cstring>
#include <numeric>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "column/TextView.h"
#include "column/Validity.h"
#include "column/allocate.h"
#include "column/elementTypes.h"
#include "kv/errors/StepError.h"
#include "kv/runtime/times.h"

namespace kv::runtime {

namespace {

using Rows = std::vector<std::int64_t>;

void checkKeep(const Chunk& chunk, const Column& keep) {
  if (keep.type() != ElementType::Logical) {
    errors::raiseStep("KALVEX:function:BadTypes",
                      {"filter", fmt::format("a {} condition", elementTypeName(keep.type()))});
  }
  if (keep.rows() != chunk.rows()) {
    errors::raiseStep("KALVEX:function:RowCounts",
                      {"filter", std::to_string(chunk.rows()), std::to_string(keep.rows())});
  }
}

/// The rows that are true. Writes every row and advances after those that are kept: no branch.
Rows keptRows(std::span<const std::uint8_t> keep, std::size_t count) {
  Rows kept(count + 1);  // one more, for rows after the last kept one
  std::size_t next = 0;
  for (std::size_t row = 0; row < keep.size(); ++row) {
    kept[next] = static_cast<std::int64_t>(row);
    next += keep[row];
  }
  kept.resize(count);
  return kept;
}

/// The bitmap of the kept rows; none if they have no nulls.
NullBits selectNulls(const Validity& validity, const Rows& kept) {
  if (!validity.hasNulls()) {
    return {};
  }
  return nullBits(static_cast<std::int64_t>(kept.size()), [&](std::int64_t row) {
    return validity.isNull(kept[static_cast<std::size_t>(row)]);
  });
}

Column selectNumbers(const Column& column, const Rows& kept) {
  const auto rows = static_cast<std::int64_t>(kept.size());
  auto buffer = allocateBuffer(static_cast<std::int64_t>(kept.size() * elementSize(column.type())));
  visitNumeric(column.type(), [&]<class T>() {
    const T* source = column.values<T>().data();
    T* target = buffer->mutable_data_as<T>();
    for (std::size_t i = 0; i < kept.size(); ++i) {
      target[i] = source[kept[i]];
    }
  });
  if (!column.isNullable()) {
    return Column(column.type(), rows, std::move(buffer));
  }
  return nullableColumn(column.type(), rows, std::move(buffer),
                        selectNulls(Validity(column), kept));
}

/// Writes the offsets of the kept texts and returns their number of bytes.
std::int64_t selectOffsets(const TextView& texts, const Rows& kept, std::int32_t* offsets) {
  std::int32_t end = 0;
  offsets[0] = end;
  for (std::size_t i = 0; i < kept.size(); ++i) {
    end += static_cast<std::int32_t>(texts[kept[i]].size());
    offsets[i + 1] = end;
  }
  return end;
}

Column selectTexts(const Column& column, const Rows& kept) {
  const TextView texts(column);
  const auto rows = static_cast<std::int64_t>(kept.size());
  auto offsets = allocateBuffer((rows + 1) * static_cast<std::int64_t>(sizeof(std::int32_t)));
  auto* ends = offsets->mutable_data_as<std::int32_t>();
  auto bytes = allocateBuffer(selectOffsets(texts, kept, ends));
  for (std::size_t i = 0; i < kept.size(); ++i) {
    const std::string_view text = texts[kept[i]];
    if (!text.empty()) {
      std::memcpy(bytes->mutable_data() + ends[i], text.data(), text.size());
    }
  }
  NullBits nulls = selectNulls(Validity(column), kept);
  return Column(ElementType::String,
                arrow::ArrayData::Make(arrow::utf8(), rows, {std::move(nulls.bits), offsets, bytes},
                                       nulls.count));
}

/// The rows of `chunk` whose flag is 1, not 0.
Chunk selectFlagged(const Chunk& chunk, std::span<const std::uint8_t> flags) {
  const auto count = std::accumulate(flags.begin(), flags.end(), std::size_t{0});
  if (count == flags.size()) {
    return chunk;
  }
  const Rows kept = keptRows(flags, count);
  Chunk result;
  result.partition = chunk.partition;
  result.ordinals = chunk.ordinals.select(kept);
  result.names = chunk.names;
  result.trailing = chunk.trailing;
  result.columns.reserve(chunk.columns.size());
  for (const Column& column : chunk.columns) {
    const bool isText = column.type() == ElementType::String;
    result.columns.push_back(isText ? selectTexts(column, kept) : selectNumbers(column, kept));
  }
  return result;
}

/// A flag for each row for which `isKept(row)`.
std::vector<std::uint8_t> flagsOf(std::int64_t rows, auto&& isKept) {
  std::vector<std::uint8_t> flags(static_cast<std::size_t>(rows));
  for (std::int64_t row = 0; row < rows; ++row) {
    flags[static_cast<std::size_t>(row)] = isKept(row) ? 1 : 0;
  }
  return flags;
}

}  // namespace

Chunk selectRows(const Chunk& chunk, const Column& keep) {
  checkKeep(chunk, keep);
  const auto conditions = keep.values<std::uint8_t>();
  const Validity validity(keep);
  if (!validity.hasNulls()) {
    return selectFlagged(chunk, conditions);
  }
  return selectFlagged(chunk, flagsOf(keep.rows(), [&](std::int64_t row) {
                         return !validity.isNull(row) &&
                                conditions[static_cast<std::size_t>(row)] != 0;
                       }));
}

Chunk selectValid(const Column& column, const RowOrdinals& ordinals) {
  assert(column.rows() == ordinals.rows());
  const Validity validity(column);
  const Chunk all{0, ordinals, nullptr, {column}};
  if (isTime(column.type())) {
    const auto times = column.values<std::int64_t>();
    return selectFlagged(all, flagsOf(column.rows(), [&](std::int64_t row) {
                           return times[static_cast<std::size_t>(row)] != kNaT;
                         }));
  }
  return validity.hasNulls()
             ? selectFlagged(all, flagsOf(column.rows(),
                                          [&](std::int64_t row) { return !validity.isNull(row); }))
             : all;
}

}  // namespace kv::runtime

#pragma once

#include <cassert>
#include <cstdint>
#include <memory>
#include <memory_resource>
#include <string>
#include <vector>

#include "kv/runtime/Column.h"

namespace kv::runtime {

/// Bytes per column that a source aims at in a chunk, so that chunks stay in cache.
inline constexpr std::int64_t kChunkBytesPerColumn = 256 * 1024;

/// Ordinals, in memory that counts against a limit.
using OrdinalList = std::pmr::vector<std::int64_t>;

/// The positions of a chunk's rows in their partition of the source, counted from 0, ascending.
///
/// A source gives a range; a filter keeps some of it. Reductions work in fixed blocks of ordinals,
/// so a result doesn't depend on how the rows were cut into chunks.
class RowOrdinals {
 public:
  /// The range [first, first + rows).
  RowOrdinals(std::int64_t first, std::int64_t rows);

  /// The ordinals in `list`, which must ascend.
  explicit RowOrdinals(std::shared_ptr<const OrdinalList> list);

  std::int64_t rows() const { return rows_; }

  /// True if the ordinals are the range [at(0), at(0) + rows()).
  bool isRange() const { return list_ == nullptr; }

  /// Requires: 0 <= row < rows().
  std::int64_t at(std::int64_t row) const {
    assert(row >= 0 && row < rows_);
    return list_ ? (*list_)[static_cast<std::size_t>(first_ + row)] : first_ + row;
  }

  /// The ordinals of rows [first, first + count).
  RowOrdinals slice(std::int64_t first, std::int64_t count) const;

  /// The ordinals of the rows in `kept`, which must ascend.
  RowOrdinals select(const std::vector<std::int64_t>& kept) const;

 private:
  std::int64_t first_;
  std::int64_t rows_;
  std::shared_ptr<const OrdinalList> list_;
};

/// The dimensions of an array after the first, without ones at the end: {} for n-by-1, {3, 2} for
/// n-by-3-by-2.
using Dimensions = std::vector<std::int64_t>;

/// The most columns of an array: the product of its trailing dimensions.
inline constexpr std::int64_t kMaxArrayColumns = 1 << 20;

/// What all chunks of an array have in common.
struct ArrayType {
  ElementType element = ElementType::Unknown;  ///< if Unknown, so is `trailing`
  Dimensions trailing{};

  bool operator==(const ArrayType&) const = default;
};

/// The rows that are passed from one step to the next at a time.
///
/// 1. All columns of a chunk have `rows()` rows. A chunk without names is an array: a column for
///    each place in its trailing dimensions, in column-major order, all of one type.
/// 2. The chunks of a partition come in ascending order of ordinals; no ordinal occurs twice.
/// 3. A chunk may have no rows: a filter may remove all.
/// 4. A chunk is immutable; steps make new ones that share buffers where they can.
/// 5. A step that takes long checks the cancellation token of its unit between chunks.
struct Chunk {
  std::int64_t partition = 0;  ///< of the source, counted from 0
  RowOrdinals ordinals{0, 0};
  std::shared_ptr<const std::vector<std::string>> names{};  ///< of the columns; null for an array
  std::vector<Column> columns{};
  Dimensions trailing{};  ///< of an array

  std::int64_t rows() const { return ordinals.rows(); }

  /// Requires: an array.
  ElementType type() const {
    assert(!columns.empty());
    return columns.front().type();
  }
  ArrayType arrayType() const { return {type(), trailing}; }

  /// Bytes that the columns occupy; counted against a memory limit.
  std::int64_t byteSize() const;
};

}  // namespace kv::runtime

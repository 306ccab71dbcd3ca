#pragma once

#include <arrow/array/data.h>
#include <arrow/buffer.h>
#include <arrow/util/bit_util.h>
#include <arrow/util/bitmap_generate.h>

#include <cstdint>
#include <memory>

#include "column/allocate.h"
#include "kv/runtime/Column.h"

namespace kv::runtime {

/// The nulls of a column with direct access to its bitmap, for loops over many rows.
///
/// Lives: not longer than the column.
class Validity {
 public:
  explicit Validity(const Column& column)
      : bits_(column.hasNulls() ? column.data()->buffers[0]->data() : nullptr),
        offset_(column.data()->offset) {}

  bool hasNulls() const { return bits_ != nullptr; }

  bool isNull(std::int64_t row) const {
    return bits_ != nullptr &&
           !arrow::bit_util::GetBit(bits_, static_cast<std::uint64_t>(offset_ + row));
  }

 private:
  const std::uint8_t* bits_;
  std::int64_t offset_;
};

/// A validity bitmap, null if no row is.
struct NullBits {
  std::shared_ptr<arrow::Buffer> bits;
  std::int64_t count = 0;  ///< of nulls
};

/// The bitmap of `rows` rows of which `isNull(row)`, called in ascending order, are null.
///
/// Errors: std::bad_alloc if memory runs out.
template <class IsNull>
NullBits nullBits(std::int64_t rows, IsNull&& isNull) {
  auto bits = allocateBuffer(arrow::bit_util::BytesForBits(rows));
  std::int64_t row = 0;
  std::int64_t count = 0;
  arrow::internal::GenerateBitsUnrolled(bits->mutable_data(), 0, rows, [&]() -> bool {
    const bool isRowNull = isNull(row++);
    count += isRowNull ? 1 : 0;
    return !isRowNull;
  });
  return {count > 0 ? std::move(bits) : nullptr, count};
}

/// A nullable integer or logical column over `elements`.
Column nullableColumn(ElementType type, std::int64_t rows, std::shared_ptr<arrow::Buffer> elements,
                      NullBits nulls);

}  // namespace kv::runtime

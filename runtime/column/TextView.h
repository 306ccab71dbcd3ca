#pragma once

#include <arrow/array/data.h>

#include <cassert>
#include <cstdint>
#include <string_view>

#include "column/Validity.h"
#include "kv/runtime/Column.h"

namespace kv::runtime {

/// The rows of a String column with direct access to its buffers, for loops over many rows.
///
/// Requires: the column is of type String.
/// Lives:    not longer than the column.
class TextView {
 public:
  explicit TextView(const Column& column) : validity_(column) {
    assert(column.type() == ElementType::String);
    const arrow::ArrayData& data = *column.data();
    offsets_ = data.GetValues<std::int32_t>(1);
    bytes_ = data.buffers[2] ? reinterpret_cast<const char*>(data.buffers[2]->data()) : nullptr;
  }

  bool hasMissing() const { return validity_.hasNulls(); }

  bool isMissing(std::int64_t row) const { return validity_.isNull(row); }

  std::string_view operator[](std::int64_t row) const {
    const std::int32_t begin = offsets_[row];
    return {bytes_ + begin, static_cast<std::size_t>(offsets_[row + 1] - begin)};
  }

 private:
  const std::int32_t* offsets_;
  const char* bytes_;
  Validity validity_;
};

}  // namespace kv::runtime

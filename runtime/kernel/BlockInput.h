#pragma once

#include <arrow/array/data.h>

#include <cstddef>
#include <vector>

#include "kernel/blockCasts.h"
#include "kv/runtime/ElementFunctions.h"

namespace kv::runtime {

/// A numeric input that is read block by block, converted to the computing type if needed.
class BlockInput {
 public:
  BlockInput(const ColumnOperand& operand, ElementType compute)
      : column_(operand.column),
        isScalar_(operand.isScalar),
        cast_(blockCast(column_.type(), compute)),
        width_(elementSize(column_.type())) {
    if (cast_) {
      converted_.resize((isScalar_ ? 1 : kBlockElements) * elementSize(compute));
    }
    if (cast_ && isScalar_) {
      cast_(elements(0), converted_.data(), 1);
    }
  }

  bool isScalar() const { return isScalar_; }

  /// The elements of [first, first + count), or the scalar; valid until the next call.
  const void* block(std::size_t first, std::size_t count) {
    if (isScalar_) {
      return converted_.empty() ? elements(0) : converted_.data();
    }
    if (!cast_) {
      return elements(first);
    }
    cast_(elements(first), converted_.data(), count);
    return converted_.data();
  }

 private:
  const std::byte* elements(std::size_t first) const {
    return column_.data()->GetValues<std::byte>(1, 0) +
           (static_cast<std::size_t>(column_.data()->offset) + first) * width_;
  }

  Column column_;
  bool isScalar_;
  BlockCast cast_ = nullptr;
  std::size_t width_ = 0;
  std::vector<std::byte> converted_;
};

}  // namespace kv::runtime

#pragma once

#include <cstddef>

#include "kv/runtime/Column.h"

namespace kv::runtime {

/// Converts `count` elements of a block to another type.
using BlockCast = void (*)(const void* input, void* output, std::size_t count);

/// The conversion for a promotion from `from` to `to`.
///
/// To logical, any value but zero is true. Integers become floating or wider, never narrower, so no
/// conversion can overflow.
/// Result: null if the types are the same, or if there is no promotion from one to the other.
BlockCast blockCast(ElementType from, ElementType to);

}  // namespace kv::runtime

#pragma once

#include <cstddef>

#include "kv/runtime/Column.h"

namespace kv::runtime {

/// Converts `count` elements of a block to another type.
using BlockCast = void (*)(const void* input, void* output, std::size_t count);

/// The conversion that a promotion from `from` to `to` needs.
///
/// To logical, what isn't zero is true. Integers become floating, and wider; nothing becomes
/// narrower, so that no conversion can overflow.
/// Result: null if the types are the same, or if no promotion leads from one to the other.
BlockCast blockCast(ElementType from, ElementType to);

}  // namespace kv::runtime

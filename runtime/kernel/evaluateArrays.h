#pragma once

#include <cstdint>
#include <span>
#include <string_view>

#include "kv/runtime/Chunk.h"
#include "kv/runtime/ElementFunctions.h"

namespace kv::runtime {

/// An array that is an input of an element function.
struct ArrayOperand {
  const Chunk* array = nullptr;
  bool isScalar = false;      ///< one row, which is repeated for every row
  std::string_view origin{};  ///< what made it, for messages
};

/// Applies `function` to `rows` rows of arrays, element by element. A trailing dimension that is 1
/// in one array is expanded to the size that it has in another.
///
/// Result: an array of `rows` rows; its ordinals start at 0.
/// Shapes: an input has `rows` rows, or one if it is scalar.
/// Errors: those of evaluate(); "KALVEX:array:SizesDiffer" with the function and the sizes and
///         origins of two inputs whose trailing dimensions differ, and neither is 1.
Chunk evaluateArrays(const ElementFunction& function, std::span<const ArrayOperand> inputs,
                     std::int64_t rows);

}  // namespace kv::runtime

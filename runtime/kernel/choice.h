#pragma once

#include <cstdint>

#include "kv/runtime/ElementFunctions.h"

namespace kv::runtime {

/// Each row from `chosen` if `condition` is true, otherwise from `other`; NaN stays NaN.
///
/// Shapes: an input has `rows` rows, or one if it is scalar.
/// Requires: the condition is logical; the type of each side promotes to `type`.
/// Errors: std::bad_alloc if memory runs out.
Column chooseNumbers(const ColumnOperand& condition, const ColumnOperand& chosen,
                     const ColumnOperand& other, ElementType type, std::int64_t rows);

/// The same for texts; missing texts stay missing.
///
/// Errors: std::bad_alloc if memory runs out, and beyond the 2^31 bytes of Arrow's utf8 columns.
Column chooseTexts(const ColumnOperand& condition, const ColumnOperand& chosen,
                   const ColumnOperand& other, std::int64_t rows);

}  // namespace kv::runtime

#pragma once

#include <cstdint>
#include <span>

#include "kv/runtime/ElementFunctions.h"

namespace kv::runtime {

/// True if an input is an integer or logical column that may have missing values.
bool areNullable(std::span<const ColumnOperand> inputs);

/// The result of `function` where inputs are missing: nulls, NaN of floating types, and a value
/// where it is known all the same. What `computed` has in these rows has no meaning.
///
/// Result:   `computed`, whose buffers it changes. Nullable, unless the function has a value for
///           each missing one.
/// Requires: areNullable(inputs); `computed` isn't a column of texts, and no other column has its
///           buffers.
/// Errors:   std::bad_alloc if memory runs out.
Column withMissingRows(const ElementFunction& function, std::span<const ColumnOperand> inputs,
                       Column computed);

}  // namespace kv::runtime

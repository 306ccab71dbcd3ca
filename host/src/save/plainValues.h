#pragma once

#include <cstddef>
#include <span>

#include "kv/host/values.h"
#include "save/SavedValue.h"

namespace kv::host {

/// The values of a file that refer to no others. Requires: a value of checked tables.
/// Errors: std::bad_alloc.

/// A number, logical or char array.
Value makeNumbers(const SavedValue& value);

/// A string array.
Value makeTexts(const SavedValue& value);

std::span<const std::size_t> dimensionsOf(const SavedValue& value);
/// The product of all dimensions but the first.
std::size_t columnsOf(const SavedValue& value);

}  // namespace kv::host

#pragma once

#include <string_view>

#include "kv/elements.h"
#include "kv/host/values.h"

namespace kv {

/// A value of the host as elements that share its memory.
/// Errors: Error "KALVEX:array:NotAColumn" unless it is an array of numbers, logicals, times
///         or texts.
Elements toElements(host::Value value, std::string_view type, bool isScalar);

/// Elements as a value of the host, which shares the memory of numbers.
host::Value toValue(const Elements& elements);

}  // namespace kv

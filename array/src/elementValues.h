#pragma once

#include <cstdint>
#include <span>
#include <string_view>

#include "kv/elements.h"
#include "kv/host/values.h"

namespace kv {

/// A value of the host as elements of rows of these dimensions that share its memory.
/// Errors: Error "KALVEX:array:NotAColumn" unless it is an array of numbers, logicals, times
///         or texts.
Elements toElements(host::Value value, std::string_view type,
                    std::span<const std::int64_t> trailing, bool isScalar);

/// Elements as a value of the host, which shares the memory of numbers.
host::Value toValue(const Elements& elements);

}  // namespace kv

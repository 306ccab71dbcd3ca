#pragma once

#include <cstddef>
#include <span>

namespace kv::host {

/// The product of all dimensions but the first.
///
/// Errors: "KALVEX:CountTooLarge" with a dimension and the limit, if elements of that size would
/// need more bytes than a signed size holds.
std::size_t columnCount(std::span<const std::size_t> dimensions, std::size_t elementBytes);

/// The number of elements of a matrix whose elements are separate objects.
/// Errors: as above.
std::size_t elementCount(std::size_t rows, std::size_t columns);

/// Without the trailing extents of 1 after the second.
std::span<const std::size_t> trimmed(std::span<const std::size_t> dimensions) noexcept;

}  // namespace kv::host

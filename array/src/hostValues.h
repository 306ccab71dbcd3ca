#pragma once

#include <span>
#include <vector>

#include "kv/value.h"
#include "kx/array.h"

/// Values of the host as values of this layer.
namespace kv {

/// A column of the host in memory.
/// Errors: Error "KALVEX:array:NotAColumn" with the class of a value that isn't a column of
/// numbers, logicals or texts.
Value toValue(const kxArray* column);

/// Raises "KALVEX:array:NotAColumn" with dimensions and class of `value`.
[[noreturn]] void raiseNotAColumn(const kxArray* value);

/// The numbers of a numeric or logical column of the host: in place if it is double, otherwise
/// copied to `store`.
/// Errors: Error "KALVEX:array:NotAColumn" for an array of several columns,
///         "KALVEX:array:NotANumber" with its class for anything else.
/// Lives: as long as `column` and `store`.
std::span<const double> numbersOf(const kxArray* column, std::vector<double>& store);

}  // namespace kv

#pragma once

#include <cstddef>

#include "ki/detail/Conversion.h"

namespace bigdata::ki {

/// True for a scalar of numeric or logical class.
bool isNumberScalar(const kxArray* array);

/// A numeric or logical scalar.
/// Errors: "KALVEX:validateattributes:invalidType" with "scalar double" and the value described.
double toDouble(const kxArray* array);

/// The same, but `ifNull` for null.
double toDouble(const kxArray* array, double ifNull);

/// A numeric or logical scalar. Any value but zero is true, also NaN.
/// Errors: "KALVEX:validateattributes:invalidType" with "scalar logical" and an empty text.
bool toLogical(const kxArray* array);

/// The same, but `ifNull` for null.
bool toLogical(const kxArray* array, bool ifNull);

/// A count: a numeric or logical scalar above -1 and below 2^64, rounded towards zero.
///
/// NaN and anything that isn't such a scalar give 2^63: callers that allocate or loop by a count
/// refuse that first.
///
/// Errors: "KALVEX:validateattributes:invalidType" with "scalar size_t" and the value described.
std::size_t toSize(const kxArray* array);

/// The nearest double.
ArrayPtr fromSize(std::size_t value);

namespace detail {

template <>
struct Conversion<double> {
  static double fromArray(const kxArray* array) { return toDouble(array); }
  static ArrayPtr toArray(double value) { return matrix::from_kalvex(kxCreateDoubleScalar(value)); }
};

template <>
struct Conversion<bool> {
  static bool fromArray(const kxArray* array) { return toLogical(array); }
  static ArrayPtr toArray(bool value) { return matrix::from_kalvex(kxCreateLogicalScalar(value)); }
};

template <>
struct Conversion<std::size_t> {
  static std::size_t fromArray(const kxArray* array) { return toSize(array); }
  static ArrayPtr toArray(std::size_t value) { return fromSize(value); }
};

}  // namespace detail
}  // namespace bigdata::ki

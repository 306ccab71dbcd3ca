#pragma once

#include <cstddef>

#include "ki/detail/Conversion.h"

namespace bigdata::ki {

/// True for a scalar of numeric or logical class.
bool isNumberScalar(const kxArray* array);

/// A numeric or logical scalar.
/// Errors: "KALVEX:validateattributes:invalidType" with "scalar double" and what came.
double toDouble(const kxArray* array);

/// The same, with a value that null stands for.
double toDouble(const kxArray* array, double ifNull);

/// A numeric or logical scalar: anything but zero is true, NaN too.
/// Errors: "KALVEX:validateattributes:invalidType" with "scalar logical" and an empty text.
bool toLogical(const kxArray* array);

/// The same, with a value that null stands for.
bool toLogical(const kxArray* array, bool ifNull);

/// A count: a numeric or logical scalar above -1 and below 2^64, rounded towards zero.
///
/// NaN, and anything that isn't such a scalar, gives 2^63: whoever allocates or loops by a count
/// refuses that first.
///
/// Errors: "KALVEX:validateattributes:invalidType" with "scalar size_t" and what came.
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

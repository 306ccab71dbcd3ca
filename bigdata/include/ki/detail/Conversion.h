#pragma once

#include <string>
#include <string_view>
#include <type_traits>
#include <utility>

#include "kx/array.h"

namespace bigdata::ki {

using matrix::ArrayPtr;

namespace detail {

/// The conversion of the native type `T` (no reference, no const). It has one or both of
///
///     static T fromArray(const kxArray* array);
///     static ArrayPtr toArray(const T& value);      // or T&&
template <class T>
struct Conversion;

template <class T>
concept ReadsFromArray = requires(const kxArray* array) { Conversion<T>::fromArray(array); };

template <class T>
concept WritesToArray = requires(T value) { Conversion<T>::toArray(std::move(value)); };

/// "3x2 double": the sizes of all dimensions, then the class; "[]" for null.
std::string describeArray(const kxArray* array);

/// Errors: "KALVEX:validateattributes:invalidType" with "Input", `expected` and `came`, always.
[[noreturn]] void raiseInvalidInput(std::string_view expected, std::string_view came);

}  // namespace detail

/// A host value as a `T`.
template <class T>
T fromArray(const kxArray* array) {
  static_assert(detail::ReadsFromArray<T>, "no conversion from a host value to this type");
  return detail::Conversion<T>::fromArray(array);
}

/// A native value as a host value.
template <class T>
ArrayPtr toArray(T&& value) {
  using Native = std::remove_cvref_t<T>;
  static_assert(detail::WritesToArray<Native>, "no conversion from this type to a host value");
  return detail::Conversion<Native>::toArray(std::forward<T>(value));
}

}  // namespace bigdata::ki

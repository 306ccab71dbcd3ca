#pragma once

#include <cstddef>
#include <utility>

#include "ki/detail/Conversion.h"

namespace bigdata::ki {

template <class E>
class typed_row_vector;

/// A host value that is known to be a logical row. Empty when default-constructed, which means "not
/// given".
template <>
class typed_row_vector<bool> {
 public:
  typed_row_vector() = default;

  /// Errors: "KALVEX:validateattributes:invalidType" with "Argument", "row vector" and the value,
  ///         if `value` isn't of class logical with two dimensions, the first of size 1.
  explicit typed_row_vector(ArrayPtr value);

  explicit operator bool() const noexcept { return value_ != nullptr; }
  std::size_t size() const noexcept { return kxGetNumberOfElements(value_.get()); }
  bool operator[](std::size_t index) const { return kxGetLogicals(value_.get())[index]; }

 private:
  ArrayPtr value_;
};

namespace detail {

template <>
struct Conversion<typed_row_vector<bool>> {
  static typed_row_vector<bool> fromArray(const kxArray* array) {
    return typed_row_vector<bool>(matrix::sharedCopy(array));
  }
};

}  // namespace detail
}  // namespace bigdata::ki

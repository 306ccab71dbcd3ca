#pragma once

#include "ki/detail/Conversion.h"

namespace bigdata::ki::detail {

/// An owned value is read as a shared copy and returned as it is.
template <>
struct Conversion<ArrayPtr> {
  static ArrayPtr fromArray(const kxArray* array) { return matrix::sharedCopy(array); }
  static ArrayPtr toArray(ArrayPtr value) { return value; }
};

/// A borrowed value is returned as a shared copy.
template <>
struct Conversion<const kxArray*> {
  static ArrayPtr toArray(const kxArray* value) { return matrix::sharedCopy(value); }
};

}  // namespace bigdata::ki::detail

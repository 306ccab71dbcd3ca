#pragma once

#include "ki/detail/Conversion.h"

namespace bigdata::ki::detail {

/// An owned value comes in as a shared copy, and goes out as it is.
template <>
struct Conversion<ArrayPtr> {
  static ArrayPtr fromArray(const kxArray* array) { return matrix::sharedCopy(array); }
  static ArrayPtr toArray(ArrayPtr value) { return value; }
};

/// A borrowed value goes out as a shared copy.
template <>
struct Conversion<const kxArray*> {
  static ArrayPtr toArray(const kxArray* value) { return matrix::sharedCopy(value); }
};

}  // namespace bigdata::ki::detail

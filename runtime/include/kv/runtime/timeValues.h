#pragma once

#include "kv/host/values.h"
#include "kv/runtime/Column.h"

/// Moments and durations as host values: objects of the classes "datetime" and "duration", whose
/// property Microseconds has the elements.
namespace kv::runtime {

/// The C++ part of such an object.
struct TimeArray final : host::NativeValue {
  TimeArray(ElementType timeType, host::Value elements)
      : type(timeType), microseconds(std::move(elements)) {}

  ElementType type;          ///< DateTime or Duration
  host::Value microseconds;  ///< an int64 array, with kNaT where one is missing
};

/// The times with these elements.
///
/// Requires: isTime(type); `microseconds` is an int64 array.
host::Value makeTimes(ElementType type, host::Value microseconds);

/// What an object of either class holds; null for any other value.
///
/// Lives: as long as the object.
/// Errors: "KALVEX:class:InvalidHandle" for a deleted object.
const TimeArray* timesIn(const kxArray* value);

/// The array whose dimensions an array of any type has: of times their elements, otherwise `value`.
///
/// Lives: as long as `value`.
/// Errors: as for timesIn().
const kxArray* shapedElements(const kxArray* value);

}  // namespace kv::runtime

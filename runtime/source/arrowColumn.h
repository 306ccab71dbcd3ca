#pragma once

#include <arrow/type_fwd.h>

#include <cstdint>
#include <optional>
#include <string>

#include "kv/runtime/Column.h"
#include "kv/runtime/Datastore.h"

namespace kv::runtime {

/// The element type under which values of an Arrow type are read: the same one for numbers,
/// logicals and texts; Double for decimals and for a column without values, Single for half floats,
/// DateTime for dates and timestamps, Duration for durations, whatever their unit.
///
/// Result: Unknown for other types, such as times of day and nested ones.
ElementType elementTypeOf(const arrow::DataType& type);

/// The name of an Arrow type whose values are read as another type, or not at all, such as
/// `decimal128(9, 2)` or `timestamp[us, tz=UTC]`; empty for the same type, and for texts.
std::string foreignTypeName(const arrow::DataType& type);

/// The values of an array as a column of `type`, nullable if it has nulls. A decimal becomes the
/// nearest double; a time is rounded to microseconds, towards the past.
///
/// Requires: firstBeyondTimes(array) is none; type == elementTypeOf(the array's type), not Unknown.
/// Errors:   std::bad_alloc; "KALVEX:memory:TextTooLarge".
Column toColumn(ElementType type, const arrow::Array& array, arrow::MemoryPool* pool);

/// The first row of an array of times that is beyond 64-bit microseconds.
std::optional<std::int64_t> firstBeyondTimes(const arrow::Array& array);

/// The first row of an array of texts that isn't UTF-8; of a dictionary, the first such text in it.
///
/// Requires: elementTypeOf(the array's type) is String.
std::optional<std::int64_t> firstNotText(const arrow::Array& array);

}  // namespace kv::runtime

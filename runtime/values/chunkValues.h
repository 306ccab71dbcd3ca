#pragma once

#include <cstddef>
#include <optional>

#include "kv/host/values.h"
#include "kv/runtime/Chunk.h"

/// Host values that are arrays or tables, as chunks.
namespace kv::runtime {

/// The rows of the chunk that `toChunk` makes of a value; none if it refuses the value or the
/// columns differ.
std::optional<std::size_t> rowsOf(const kxArray* value);

/// An array, or what a BroadcastArray holds, as one chunk of partition 0. An empty array is a
/// column, unless only its first dimension is 0. Numeric and logical memory is borrowed.
///
/// Errors: "KALVEX:array:NotAColumn" with the shape and class of another value;
///         "KALVEX:array:TooManyColumns" with the size of an array.
Chunk toArray(const kxArray* value);

/// The same for an array or a table.
Chunk toChunk(const kxArray* value);

/// An array or a table. Integers and logicals are doubles if one is missing (missingMarks.h). The
/// memory of a single column is borrowed, if it is numeric or logical.
///
/// Errors: "KALVEX:array:MissingField" as toMarkedDoubles().
host::Value toValue(const Chunk& chunk);

/// An array for a user's function, which always gets doubles for nullable columns, so that some
/// rows are of the same class as all.
///
/// Errors: "KALVEX:array:MissingField" as toMarkedDoubles().
host::Value toArgument(const Chunk& array);

}  // namespace kv::runtime

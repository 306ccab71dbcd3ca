#pragma once

#include <optional>

#include "kv/host/values.h"
#include "kv/runtime/Chunk.h"

/// Integer and logical columns with nulls as host values, which have no nulls: doubles, in which a
/// missing value is a NaN that has the column's type in its payload. So it is NaN for users, and
/// `toColumn` gives the same column again, whether the value was kept, gathered, saved or has just
/// been computed.
namespace kv::runtime {

/// The elements of an array as doubles, column by column, missing ones as marked NaNs. Its value
/// has as many rows and columns.
///
/// Requires: the columns are nullable.
/// Errors:   "KALVEX:array:MissingField" with the ordinal of a row, counted from 1, the value and
///           the type of a value beyond 2^53, where doubles skip whole numbers.
host::Value toMarkedDoubles(const Chunk& array);

/// The column of which `toMarkedDoubles` has made the value; none if there is no mark, or if an
/// element isn't one of the marked type.
///
/// Cost: reads all doubles.
std::optional<Column> fromMarkedDoubles(const kxArray* value);

/// The value with plain NaNs for marked ones; itself if it has none.
host::Value withoutMarks(host::Value value);

}  // namespace kv::runtime

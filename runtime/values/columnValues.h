#pragma once

#include "kv/host/values.h"
#include "kv/runtime/Chunk.h"

/// Columns as host values and back, for user's callables and for results.
namespace kv::runtime {

/// An n-by-1 host array of the column's class, or of doubles for an Unknown column and for an
/// integer or logical one with missing values (missingMarks.h). Numeric and logical memory is
/// borrowed, texts are copied to UTF-16.
///
/// Errors: "KALVEX:array:MissingField" with the row, value and type of a value beyond 2^53 in an
///         integer column with missing values.
host::Value toValue(const Column& column);

/// The same for an argument of a user's function, which always gets doubles for a nullable column:
/// some of its rows are of the same class as all. `rows` says which rows they are, for messages.
host::Value toArgument(const Column& column, const RowOrdinals& rows);

/// The column of an n-by-1 numeric, logical or string array, a char row or a scalar, or of what a
/// BroadcastArray holds. Numeric and logical memory is borrowed, texts are copied.
///
/// Errors: "KALVEX:array:NotAColumn" with the shape and class of another value.
Column toColumn(const kxArray* value);

/// The value that a function of the user's returned: NaNs are NaNs, also those that arithmetic has
/// made of a missing input and that kept its payload.
host::Value asReturned(host::Value value);

/// True if `toColumn` accepts the value.
bool isColumn(const kxArray* value) noexcept;

bool isBroadcastArray(const kxArray* value);

/// What a BroadcastArray holds; any other value itself.
host::Value withoutBroadcast(const kxArray* value);

}  // namespace kv::runtime

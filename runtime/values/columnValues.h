#pragma once

#include "kv/host/values.h"
#include "kv/runtime/Column.h"
#include "kv/runtime/elementClasses.h"

/// Columns as host values and back, for user's callables and for results.
namespace kv::runtime {

/// An n-by-1 host array of the column's class, an object of class "datetime" or "duration"
/// (timeValues.h), or doubles for an Unknown column and for an integer or logical one with missing
/// values (missingMarks.h). Numeric and logical memory is borrowed, texts are copied to UTF-16.
///
/// Errors: "KALVEX:array:MissingField" with the row, value and type of a value beyond 2^53 in an
///         integer column with missing values.
host::Value toValue(const Column& column);

/// The elements of a numeric, logical or string array or of times in column-major order, or the
/// text of a char row. Numeric and logical memory is borrowed, texts are copied.
///
/// Errors: "KALVEX:array:NotAColumn" with the shape and class of another value.
Column elementsOf(const kxArray* value);

/// The column of an n-by-1 array or a char row, or of what a BroadcastArray holds, as `elementsOf`
/// gives it.
///
/// Errors: "KALVEX:array:NotAColumn" with the shape and class of another value.
Column toColumn(const kxArray* value);

/// The value that a user-defined function returned: NaNs are NaNs, also those that arithmetic has
/// made of a missing input and that kept its payload.
host::Value asReturned(host::Value value);

/// True if `elementsOf` accepts the value.
bool isArray(const kxArray* value);

/// True if `toColumn` accepts the value.
bool isColumn(const kxArray* value);

/// True for a char row, which is one text.
bool isCharRow(const kxArray* value) noexcept;

bool isBroadcastArray(const kxArray* value);

/// What a BroadcastArray holds; any other value itself.
host::Value withoutBroadcast(const kxArray* value);

/// A BroadcastArray of a value; one that is such an array itself.
host::Value asBroadcast(const kxArray* value);

}  // namespace kv::runtime

#pragma once

#include "kv/host/values.h"
#include "kv/runtime/Column.h"

/// Columns as host values and back, for user's callables and for results.
namespace kv::runtime {

// Host values of integers and logicals have no missing elements. A missing column is doubles that
// are NaN, each with its type in the payload: NaN for users, and `toColumn` gives the same column
// again, whether the value was kept, gathered, saved or computed a moment ago.

/// An n-by-1 host array of the column's class, or of doubles for a missing or Unknown one. Numeric
/// and logical memory is borrowed, texts are copied to UTF-16.
host::Value toValue(const Column& column);

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

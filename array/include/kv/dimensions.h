#pragma once

#include <cstdint>
#include <span>
#include <string_view>
#include <vector>

#include "kv/array.h"

/// Arrays of several dimensions within their rows, and their first rows.
namespace kv {

/// Some of the elements of each row, in any order, as rows of other dimensions. Places count the
/// elements of a row in column-major order.
///
/// Errors: Error "KALVEX:array:NotANumber" for an array of texts; "KALVEX:array:BadIndex" with a
///         place that rows don't have.
Array selectPlaces(const Array& array, std::span<const std::int64_t> places,
                   std::vector<std::int64_t> trailing, Where where = Where::current());

/// How rows are reduced.
struct RowReduction {
  std::vector<std::size_t> axes;  ///< dimensions, from 1; that of rows is 0
  bool keepsDimensions = false;   ///< those that are reduced have 1 element
  Missing missing = Missing::Skip;
};

/// An aggregate of the elements of each row, along some dimensions: "sum", "mean", "min", "max",
/// "count", "std", "var", "stdp", "varp", "any", "all". Types are those of `aggregate`. Elements
/// are added up in the order of places, floating ones as doubles.
///
/// Errors: Error "KALVEX:array:UnknownFunction"; "KALVEX:function:BadTypes", also for texts and
///         times; when gathered, "KALVEX:function:Overflow".
Array aggregateRows(std::string_view name, const Array& array, const RowReduction& reduction,
                    Where where = Where::current());

/// The first rows, all if there are fewer. No more is read than these need.
/// Errors: Error "KALVEX:array:HeadRows" for a negative number.
Array head(const Array& array, std::int64_t rows, Where where = Where::current());
Table head(const Table& table, std::int64_t rows, Where where = Where::current());

}  // namespace kv

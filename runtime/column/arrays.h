#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "kv/runtime/Chunk.h"

/// Arrays of several dimensions as chunks: the first dimension is that of rows; the others, the
/// trailing ones, are spread over columns.
namespace kv::runtime {

/// The columns of an array with these trailing dimensions.
std::size_t columnsIn(const Dimensions& trailing);

/// The dimensions without ones at the end.
Dimensions withoutTrailingOnes(Dimensions dimensions);

/// All dimensions of an array, at least two.
std::vector<std::size_t> dimensionsOf(const Chunk& array);

/// A size for messages: "n-by-1", "n-by-3-by-2".
std::string describeSize(const Dimensions& trailing);

/// An array of no rows.
Chunk emptyArray(const ArrayType& type);

/// The dimensions of what is computed from arrays of dimensions `a` and `b`: a dimension that is 1
/// in one of them has the size that it has in the other. None if two sizes differ.
std::optional<Dimensions> expanded(const Dimensions& a, const Dimensions& b);

/// For each column of an array of dimensions `to`, the column of an array of dimensions `from` that
/// goes with it.
///
/// Requires: expanded(from, to) == to.
std::vector<std::size_t> expandedColumns(const Dimensions& from, const Dimensions& to);

/// The columns in the order in which their elements follow one another in a row: the last
/// dimension varies first there, whereas columns are in column-major order.
std::vector<std::size_t> rowMajorColumns(const Dimensions& trailing);

/// True for columns that all have the element type of the first.
bool isOfOneType(const Chunk& array);

}  // namespace kv::runtime

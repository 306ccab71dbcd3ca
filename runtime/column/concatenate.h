#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "kv/runtime/Chunk.h"
#include "kv/runtime/Column.h"

namespace kv::runtime {

/// A column of `rows` rows, each the one row of `value`.
Column repeat(const Column& value, std::int64_t rows);

/// The rows of all columns in order, as one column of the type of those that have rows. Without any
/// rows, the type is that of the first column whose type is known, or Unknown.
///
/// Requires: columns with rows are of one type.
/// Errors: "KALVEX:memory:TextTooLarge" for texts of more than 2 GiB in all (StepError).
Column concatenate(const std::vector<Column>& columns);

/// The rows of all arrays in order, as an array of the type and dimensions of those that have rows,
/// with ordinals from 0. Without any rows, the type is that of the first array whose type is known.
///
/// Requires: arrays with rows are of one type and have the same trailing dimensions.
Chunk concatenateArrays(std::span<const Chunk> arrays);

/// The rows of all tables in order, with ordinals from 0.
///
/// Requires: at least one table; all have the same columns.
Chunk concatenateTables(std::span<const Chunk> tables);

/// The rows of all chunks of a partition in order, with their ordinals.
///
/// Requires: at least one chunk; all are arrays or tables as above; ordinals ascend.
Chunk concatenate(std::span<const Chunk> chunks);

/// Rows [first, first + count) of a chunk; shares the buffers.
Chunk slice(const Chunk& chunk, std::int64_t first, std::int64_t count);

}  // namespace kv::runtime

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

/// The rows of all chunks in order.
///
/// Requires: at least one chunk; all have the same columns and partition; ordinals ascend.
Chunk concatenate(std::span<const Chunk> chunks);

/// Rows [first, first + count) of a chunk; shares the buffers.
Chunk slice(const Chunk& chunk, std::int64_t first, std::int64_t count);

}  // namespace kv::runtime

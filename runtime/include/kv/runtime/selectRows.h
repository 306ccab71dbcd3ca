#pragma once

#include "kv/runtime/Chunk.h"

namespace kv::runtime {

/// The rows of `chunk` for which `keep` is true, with their ordinals.
///
/// Result: the chunk itself if every row stays; otherwise a chunk of new columns, maybe of no rows.
/// Shapes: `keep` has `chunk.rows()` rows.
/// Errors: "KALVEX:function:BadTypes" if `keep` isn't logical; "KALVEX:function:RowCounts" if it
///         has another number of rows (FunctionError).
Chunk selectRows(const Chunk& chunk, const Column& keep);

}  // namespace kv::runtime

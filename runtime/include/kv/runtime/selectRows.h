#pragma once

#include "kv/runtime/Chunk.h"

namespace kv::runtime {

/// The rows of `chunk` for which `keep` is true and not missing, with their ordinals.
///
/// Result: the chunk itself if every row is kept; otherwise a chunk of new columns, maybe empty.
/// Shapes: `keep` has `chunk.rows()` rows.
/// Errors: "KALVEX:function:BadTypes" if `keep` isn't logical; "KALVEX:function:RowCounts" if it
///         has a different number of rows.
Chunk selectRows(const Chunk& chunk, const Column& keep);

/// The rows of `column` that are neither null nor kNaT, as a chunk of one column.
///
/// Requires: `column` has `ordinals.rows()` rows.
Chunk selectValid(const Column& column, const RowOrdinals& ordinals);

}  // namespace kv::runtime

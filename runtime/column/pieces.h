#pragma once

#include <cstdint>
#include <span>

#include "kv/runtime/Column.h"

namespace kv::runtime {

// What a user's function sees at a time follows from the data alone: never from how a source reads
// its rows, from the columns that a pass needs, or from memory and threads.
//
// 1. A function that works row by row sees *pieces*: the rows that are left of 32,768 rows of the
//    source, counted within the partition.
// 2. A function that can see where rows end, such as the first function of a reduction, sees
//    *frames*: 32,768 rows that are left, counted within the partition; the last frame may be
//    shorter.
// 3. Where a row of the function's inputs is wide, both shrink to the power of two that keeps them
//    below 8 MiB.

inline constexpr std::int64_t kPieceRows = 32 * 1024;
inline constexpr std::int64_t kPieceBytes = 8 << 20;

/// Rows of a piece or frame for inputs of such types; a text counts as 16 bytes.
///
/// Result: a power of two, at least 1 and at most kPieceRows.
std::int64_t pieceRows(std::span<const ElementType> types);

}  // namespace kv::runtime

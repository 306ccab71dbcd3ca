#pragma once

#include <cstdint>
#include <vector>

#include "kv/runtime/Chunk.h"

namespace kv::runtime {

/// Bytes from which on a result is made in memory of its own, page by page.
inline constexpr std::int64_t kLargeResultBytes = 1 << 20;

/// All rows of chunks in order, with ordinals from 0, as concatenateArrays() and
/// concatenateTables() give them. The chunks are freed while they are copied, so that a large
/// result isn't in memory twice; but texts, and integers and logicals that may be missing, are.
///
/// Errors: those of concatenate().
Chunk joinChunks(std::vector<Chunk> chunks);

}  // namespace kv::runtime

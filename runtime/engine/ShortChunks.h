#pragma once

#include <cstdint>
#include <memory>

#include "kv/runtime/Datastore.h"

namespace kv::runtime {

/// The most rows of a chunk in the test world KV_CHUNK_ROWS=<n>, in which sources give short
/// chunks: no answer may depend on how they cut their rows. The largest number without it.
std::int64_t maxChunkRows();

/// The same rows in chunks of at most maxChunkRows().
std::unique_ptr<ChunkReader> inShortChunks(std::unique_ptr<ChunkReader> reader);

}  // namespace kv::runtime

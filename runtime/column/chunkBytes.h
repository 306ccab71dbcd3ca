#pragma once

#include <arrow/type_fwd.h>

#include "column/bytes.h"
#include "kv/runtime/Chunk.h"

/// Columns and chunks as bytes: Arrow's IPC stream format, with the element types before it.
namespace kv::runtime {

/// Writes a chunk whose ordinals begin at 0 without gaps, such as a value that is there whole.
void writeChunk(const Chunk& chunk, ByteWriter& bytes);

/// Errors: "KALVEX:executor:BadBytes"; std::bad_alloc when memory is short.
Chunk readChunk(ByteReader& bytes, arrow::MemoryPool* pool);

void writeColumn(const Column& column, ByteWriter& bytes);
Column readColumn(ByteReader& bytes, arrow::MemoryPool* pool);

}  // namespace kv::runtime

#pragma once

#include "kv/errors/bytes.h"
#include "kv/runtime/Chunk.h"

/// Plain values as bytes, little-endian, as threads, processes and machines pass them on.
namespace kv::runtime {

using errors::ByteReader;
using errors::ByteWriter;

ElementType readElementType(ByteReader& bytes);

/// The trailing dimensions of an array.
void writeDimensions(const Dimensions& trailing, ByteWriter& bytes);
Dimensions readDimensions(ByteReader& bytes);

}  // namespace kv::runtime

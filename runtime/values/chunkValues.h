#pragma once

#include <cstddef>
#include <optional>

#include "kv/host/values.h"
#include "kv/runtime/Chunk.h"

/// Host values that are columns or tables, as chunks.
namespace kv::runtime {

/// The rows of each column that `toChunk` makes of a value; none if it refuses the value or the
/// columns differ.
std::optional<std::size_t> rowsOf(const kxArray* value);

/// A column or table as one chunk of partition 0.
Chunk toChunk(const kxArray* value);

/// A chunk of one unnamed column as a column, any other as a table.
host::Value toValue(const Chunk& chunk);

}  // namespace kv::runtime

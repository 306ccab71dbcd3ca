#pragma once

#include "execution/OpSpec.h"
#include "kv/runtime/Chunk.h"

/// What built-in steps do to a chunk.
namespace kv::runtime {

/// The columns of a table that `spec` names: a table, or, for its content, an array.
/// Requires: the table has them.
Chunk takeVariables(const OpSpec& spec, const Chunk& table);

/// True if two chunks of one partition stand for the same rows of the source.
bool haveSameRows(const RowOrdinals& a, const RowOrdinals& b);

}  // namespace kv::runtime

#pragma once

#include "engine/OpSpec.h"
#include "kv/runtime/Chunk.h"

/// What built-in steps do to a chunk.
namespace kv::runtime {

/// The columns of a table that `spec` names: a table, or, for its content, an array.
/// Errors: "KALVEX:array:NeedsTable"; "KALVEX:array:UnknownColumn" with the columns there are.
Chunk takeVariables(const OpSpec& spec, const Chunk& table);

/// What a condition of a choice says.
/// Errors: "KALVEX:array:Condition" with what it is, unless it is one logical.
bool isConditionTrue(const Column& condition);

/// Refuses a result of another type where `spec` gives logical ones.
/// Errors: "KALVEX:array:NotLogical".
void requireType(const OpSpec& spec, const Column& result);

/// True if two chunks of one partition stand for the same rows of the source.
bool haveSameRows(const RowOrdinals& a, const RowOrdinals& b);

}  // namespace kv::runtime

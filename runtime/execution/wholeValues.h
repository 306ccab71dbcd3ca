#pragma once

#include <cstddef>
#include <vector>

#include "execution/Plan.h"
#include "execution/Stage.h"
#include "kv/host/values.h"
#include "kv/runtime/Chunk.h"

/// Values that are there whole, between passes.
namespace kv::runtime {

/// A value, and where its rows stood when it was gathered from partitions.
struct WholeValue {
  host::Value value;
  /// Null, or a structure with the fields "RowCount"; "PartitionRows", the first row of each
  /// partition and the number of rows behind them; "Ordinals", an int64 column, or `[]` when every
  /// partition was kept from its first row on.
  host::Value metadata;
};

/// Whole values by task and output; null where there is none yet.
using WholeValues = std::vector<std::vector<WholeValue>>;

/// Joins what was kept of all partitions, in order: a column, or a table.
WholeValue joinRows(const std::vector<std::vector<Chunk>>& partitions);

/// A value as an input of a stage. Without metadata it is one value for all rows.
///
/// Errors: "KALVEX:array:NotAColumn" for a value that has no rows and is no scalar.
StageInput stageInput(const kxArray* value, const kxArray* metadata, bool isConstant);

/// A column or table as one chunk of partition 0.
Chunk toChunk(const kxArray* value);

/// A chunk of one unnamed column as a column, any other as a table.
host::Value toValue(const Chunk& chunk);

/// The value that a task's input stands for; null if it isn't there yet.
host::Value inputValue(const PlanInput& input, const WholeValues& values);

}  // namespace kv::runtime

#pragma once

#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "execution/Plan.h"
#include "execution/RowPlaces.h"
#include "kv/host/values.h"
#include "kv/runtime/Chunk.h"

/// Values that are there whole, between passes.
namespace kv::runtime {

/// A value, and where its rows stood if it was gathered from partitions.
struct WholeValue {
  host::Value value;
  std::shared_ptr<const RowPlaces> places{};
};

/// Whole values by task and output; null where there is none yet.
using WholeValues = std::vector<std::vector<WholeValue>>;

/// Joins what was kept of all partitions, in order: a column, or a table. `origin` made the rows.
WholeValue joinRows(const std::vector<std::vector<Chunk>>& partitions,
                    std::shared_ptr<const RowCut> cut, std::string origin);

/// The rows of each column that `toChunk` makes of a value; none if it refuses the value or the
/// columns differ.
std::optional<std::size_t> rowsOf(const kxArray* value);

/// A column or table as one chunk of partition 0.
Chunk toChunk(const kxArray* value);

/// A chunk of one unnamed column as a column, any other as a table.
host::Value toValue(const Chunk& chunk);

/// The value that a task's input stands for.
/// Requires: it is there.
WholeValue inputValue(const PlanInput& input, const WholeValues& values);

}  // namespace kv::runtime

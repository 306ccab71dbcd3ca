#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

#include "engine/RowPlaces.h"
#include "kv/host/values.h"
#include "kv/runtime/Chunk.h"
#include "plan/Plan.h"

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

/// The value that a task's input stands for.
/// Requires: it is there.
WholeValue inputValue(const PlanInput& input, const WholeValues& values);

}  // namespace kv::runtime

#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "column/RowPlaces.h"
#include "driver/PlanHandles.h"
#include "kv/host/values.h"
#include "kv/runtime/Chunk.h"

/// Values that are there whole, between passes.
namespace kv::runtime {

/// A value, and where its rows were if it was gathered from partitions.
struct MaterialisedValue {
  host::Value value;
  std::shared_ptr<const RowPlaces> places{};
};

/// Materialised values by task and output; null where there is none yet.
using MaterialisedValues = std::vector<std::vector<MaterialisedValue>>;

/// Values that aren't known to be rows of a source.
std::vector<MaterialisedValue> materialisedValues(std::vector<host::Value> values);

/// Joins what was kept of all partitions, in order: a column, or a table. `origin` made the rows;
/// `frameRows`: as in RowPlaces.
MaterialisedValue joinRows(std::vector<std::vector<Chunk>> partitions,
                           std::shared_ptr<const RowCut> cut, std::string origin,
                           std::int64_t frameRows);

/// The arrays of as many rows that a task made, as the rows of a source of its own, `rowSpace`,
/// whose partitions have `partitionRows`, or, if there are none, kMadeRows. `origin` made them.
std::vector<MaterialisedValue> madeRows(const std::vector<Chunk>& arrays,
                                        std::vector<std::int64_t> partitionRows,
                                        std::string rowSpace, const std::string& origin);

/// Rows of a partition of those that a task made: the cut depends on the rows alone.
inline constexpr std::int64_t kMadeRows = 1 << 20;

/// The value of a task's input.
/// Requires: it is there.
MaterialisedValue inputValue(const PlanInput& input, const PlanHandles& handles,
                             const MaterialisedValues& values);

}  // namespace kv::runtime

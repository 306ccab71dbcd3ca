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
struct WholeValue {
  host::Value value;
  std::shared_ptr<const RowPlaces> places{};
};

/// Whole values by task and output; null where there is none yet.
using WholeValues = std::vector<std::vector<WholeValue>>;

/// Values that aren't known to be rows of a source.
std::vector<WholeValue> wholeValues(std::vector<host::Value> values);

/// Joins what was kept of all partitions, in order: a column, or a table. `origin` made the rows;
/// `frameRows`: as in RowPlaces.
WholeValue joinRows(std::vector<std::vector<Chunk>> partitions, std::shared_ptr<const RowCut> cut,
                    std::string origin, std::int64_t frameRows);

/// The value of a task's input.
/// Requires: it is there.
WholeValue inputValue(const PlanInput& input, const PlanHandles& handles,
                      const WholeValues& values);

}  // namespace kv::runtime

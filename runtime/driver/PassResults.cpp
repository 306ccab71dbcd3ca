#include "driver/PassResults.h"

#include <algorithm>
#include <utility>

#include "driver/SessionFunctions.h"
#include "values/chunkValues.h"

namespace kv::runtime {

namespace {

using host::Value;

/// The values of an aggregate.
std::vector<Value> valuesOf(const MergedSink& merged) {
  if (merged.reduced != nullptr) {
    return SessionFunctions::valuesOf(merged.reduced);
  }
  std::vector<Value> values;
  for (const Chunk& array : merged.arrays) {
    values.push_back(toValue(array));
  }
  return values;
}

/// The keys, and the values of one task from number `first` on.
std::vector<Chunk> arraysOf(const MergedSink& merged, std::size_t first, std::size_t numOutputs) {
  std::vector<Chunk> arrays{merged.arrays.front()};
  for (std::size_t output = 1; output < numOutputs; ++output) {
    arrays.push_back(merged.arrays[std::min(first + output, merged.arrays.size() - 1)]);
  }
  return arrays;
}

}  // namespace

std::vector<MaterialisedValue> PassResults::allOf(const PlanTask& task, const SinkPlace& place,
                                                  std::string rowSpace) {
  MergedSink& merged = mergedAt(place.output);
  return task.makesRows ? madeRows(arraysOf(merged, place.firstValue, task.spec->numOutputs),
                                   merged.partitionRows, std::move(rowSpace), describe(*task.spec))
                        : materialisedValues(valuesOf(merged));
}

/// Those of the unit without rows, which only have types, join those of the last partition.
MaterialisedValue PassResults::rowsOf(const PlanTask& task, const SinkPlace& place) {
  const Cut& kept = stage_.cutOf(stage_.outputs()[place.output]);
  std::shared_ptr<const RowCut> cut = kept.madeBy ? cutOfMade(*kept.madeBy) : cut_;
  std::vector<std::vector<Chunk>> partitions = std::move(mergedAt(place.output).partitions);
  if (std::ssize(partitions) > cut->numPartitions()) {
    const std::vector<Chunk> withoutRows = std::move(partitions.back());
    partitions.pop_back();
    partitions.back().insert(partitions.back().end(), withoutRows.begin(), withoutRows.end());
  }
  return joinRows(std::move(partitions), std::move(cut), describe(*task.spec), kept.frameRows);
}

MergedSink& PassResults::mergedAt(std::size_t output) {
  if (!merged_.contains(output)) {
    merged_.emplace(output, merge_.finish(output));
  }
  return merged_.at(output);
}

/// The cut of the rows that a step of the stage has made.
std::shared_ptr<const RowCut> PassResults::cutOfMade(std::size_t step) const {
  return std::make_shared<const RowCut>(
      RowCut{stage_.steps()[step].rowSpace, merge_.madeRows(step, cut_->numPartitions())});
}

}  // namespace kv::runtime

#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <vector>

#include "engine/runUnit.h"

namespace kv::runtime {

/// Merges the results of a stage's units in the order of partitions, as they come. A result that
/// comes early waits; of those merged, only what is in the trees of sinks is kept.
///
/// Lives: stage and functions outlive it.
class OrderedMerge {
 public:
  OrderedMerge(const Stage& stage, UserFunctions& functions, std::int64_t numPartitions);

  const Stage& stage() const { return stage_; }

  /// Takes in the result of a unit, in any order.
  /// Result: the first failure in the order of partitions; none so far otherwise.
  std::optional<errors::FailureRecord> add(UnitResult result);

  /// False once no step needs the results of further partitions.
  bool wantsMore() const;

  /// True if there are results of partitions after one that hasn't come yet.
  bool hasEarly() const { return !early_.empty(); }

  /// Drops those results; they must come again.
  /// Result: their partitions.
  std::vector<std::int64_t> dropEarly();

  /// Bytes of the rows that are kept of the partitions merged so far.
  std::int64_t keptBytes() const;

  /// Rows of the source, of each partition merged so far.
  const std::vector<std::int64_t>& partitionRows() const { return partitionRows_; }

  /// Rows that a step has made of its own, of each partition; those of the unit without rows count
  /// as the last partition's.
  std::vector<std::int64_t> madeRows(std::size_t step, std::int64_t numPartitions) const;

  /// Rows of these that weren't read.
  std::int64_t skippedRows() const { return skippedRows_; }

  /// True if a function of the stage was called for no row at all.
  bool hasUncalledFunction() const;

  /// The types that functions have returned, by step.
  KnownTypes knownTypes() const;

  /// What all units gathered for output `sink` of the stage. Called once for each.
  /// Errors: those of the operator.
  MergedSink finish(std::size_t sink) { return merges_[sink]->finish(); }

 private:
  std::optional<errors::FailureRecord> merge(UnitResult result);
  std::optional<errors::FailureRecord> addTypes(const UnitResult& result);

  const Stage& stage_;
  std::vector<std::unique_ptr<SinkMerge>> merges_;
  std::map<std::int64_t, UnitResult> early_;
  std::vector<std::int64_t> partitionRows_;
  std::map<std::size_t, std::map<std::int64_t, std::int64_t>> madeRows_;  ///< by step, partition
  std::int64_t skippedRows_ = 0;
  std::map<std::size_t, OutputTypes> types_;
};

}  // namespace kv::runtime

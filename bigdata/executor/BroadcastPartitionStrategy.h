#pragma once

#include "executor/PartitionStrategy.h"

namespace bigdata::executor {

/// A single partition whose value every partition of the other inputs sees whole. It aligns with
/// any other strategy.
class BroadcastPartitionStrategy final : public PartitionStrategy {
 public:
  static constexpr kcos::NameRef kHostClassName =
      "kalvex.bigdata.internal.executor.BroadcastPartitionStrategy";

  explicit BroadcastPartitionStrategy(const ki::KalvexManagedConstructInfo& info);

  std::size_t getMinNumPartitions() const override;
  std::optional<std::size_t> getMaxNumPartitions() const override;
  bool getIsDatastorePartitioning() const override { return false; }
  bool getIsBroadcast() const override { return true; }
  std::size_t getMaxNumReadFailures() const override { return 0; }
  matrix::ArrayPtr createPartition(std::size_t partitionIndex,
                                   std::size_t numPartitions) const override;
  /// Errors: "KALVEX:bigdata:array:InternalError", always.
  matrix::ArrayPtr createPartition(std::size_t partitionIndex, std::size_t numPartitions,
                                   const matrix::ArrayPtr& hadoopSplit) const override;
  ki::KalvexManagedPtr<PartitionStrategy> fixNumPartitions(
      std::size_t numPartitions) const override;
  bool typedIsCompatible(const PartitionStrategy& other) const override;
};

}  // namespace bigdata::executor

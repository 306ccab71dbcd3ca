#pragma once

#include "executor/PartitionStrategy.h"

namespace bigdata::executor {

/// The number of partitions is fixed.
class FixedNumPartitionStrategy final : public PartitionStrategy {
 public:
  static constexpr kcos::NameRef kHostClassName =
      "kalvex.bigdata.internal.executor.FixedNumPartitionStrategy";

  /// For load: no partitions until the count is set.
  explicit FixedNumPartitionStrategy(const ki::KalvexManagedConstructInfo& info);
  /// Errors: "KALVEX:bigdata:array:InternalError" for 0.
  FixedNumPartitionStrategy(const ki::KalvexManagedConstructInfo& info, std::size_t numPartitions);

  /// Stores the count of a loaded object without checking it.
  void setMinNumPartitions(std::size_t value) { numPartitions_ = value; }

  std::size_t getMinNumPartitions() const override;
  std::optional<std::size_t> getMaxNumPartitions() const override;
  bool getIsDatastorePartitioning() const override { return false; }
  bool getIsBroadcast() const override { return false; }
  std::size_t getMaxNumReadFailures() const override { return 0; }
  matrix::ArrayPtr createPartition(std::size_t partitionIndex,
                                   std::size_t numPartitions) const override;
  /// Errors: "KALVEX:bigdata:array:InternalError", always.
  matrix::ArrayPtr createPartition(std::size_t partitionIndex, std::size_t numPartitions,
                                   const matrix::ArrayPtr& hadoopSplit) const override;
  ki::KalvexManagedPtr<PartitionStrategy> fixNumPartitions(
      std::size_t numPartitions) const override;
  bool typedIsCompatible(const PartitionStrategy& other) const override;

 private:
  std::size_t numPartitions_ = 0;
};

}  // namespace bigdata::executor

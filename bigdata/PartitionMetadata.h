#pragma once

#include "executor/PartitionStrategy.h"
#include "ki/PropertyPtr.h"

namespace bigdata {

/// What is known about the partitioning of an array: its strategy.
class PartitionMetadata : public ki::KalvexManagedObject {
 public:
  static constexpr kcos::NameRef kHostClassName = "kalvex.bigdata.internal.PartitionMetadata";

  /// For load: no strategy until it is set.
  explicit PartitionMetadata(const ki::KalvexManagedConstructInfo& info);
  /// From any value that denotes a strategy (see `createPartitionStrategy`).
  PartitionMetadata(const ki::KalvexManagedConstructInfo& info, matrix::ArrayPtr partitioning);
  PartitionMetadata(const ki::KalvexManagedConstructInfo& info,
                    const ki::KalvexManagedPtr<executor::PartitionStrategy>& strategy);

  const ki::PropertyPtr<executor::PartitionStrategy>& getStrategy() const { return strategy_; }
  void setStrategy(const ki::KalvexManagedPtr<executor::PartitionStrategy>& strategy);

 private:
  ki::PropertyPtr<executor::PartitionStrategy> strategy_;
};

}  // namespace bigdata

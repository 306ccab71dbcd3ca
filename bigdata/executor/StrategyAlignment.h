#pragma once

#include "executor/PartitionStrategy.h"

namespace bigdata::executor {

/// Finds the strategy that several inputs share. Broadcast strategies and null are compatible with
/// everything and are skipped. The first of the others aligns each that follows.
class StrategyAlignment {
 public:
  /// Errors: "KALVEX:bigdata:array:IncompatibleTallIndexing" if the class differs from that of the
  ///         strategies added before; "KALVEX:class:InvalidHandle" for a deleted one.
  void add(const ki::KalvexManagedPtr<PartitionStrategy>& strategy);

  /// Null if all were skipped.
  const ki::KalvexManagedPtr<PartitionStrategy>& result() const { return result_; }

  /// As `result`, but a new broadcast strategy if all were skipped.
  ki::KalvexManagedPtr<PartitionStrategy> resultOrBroadcast() const;

 private:
  ki::KalvexManagedPtr<PartitionStrategy> result_;
};

}  // namespace bigdata::executor

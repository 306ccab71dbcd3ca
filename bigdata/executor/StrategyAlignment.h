#pragma once

#include "executor/PartitionStrategy.h"

namespace bigdata::executor {

/// Finds the one strategy that several share. Broadcasts and null fit anything and have no vote; of
/// the others the first one aligns each that follows.
class StrategyAlignment {
 public:
  /// Errors: "KALVEX:bigdata:array:IncompatibleTallIndexing" if the class differs from that of the
  ///         strategies before, "KALVEX:class:InvalidHandle" for a deleted one.
  void add(const ki::KalvexManagedPtr<PartitionStrategy>& strategy);

  /// Null if nothing had a vote.
  const ki::KalvexManagedPtr<PartitionStrategy>& result() const { return result_; }

  /// A new broadcast strategy if nothing had a vote.
  ki::KalvexManagedPtr<PartitionStrategy> resultOrBroadcast() const;

 private:
  ki::KalvexManagedPtr<PartitionStrategy> result_;
};

}  // namespace bigdata::executor

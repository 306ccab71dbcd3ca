#pragma once

#include <cstddef>
#include <optional>

#include "ki/KalvexManagedObject.h"
#include "kx/array.h"

namespace bigdata::executor {

/// How many partitions an array may have, and the partition objects that an executor gives to its
/// workers. Immutable and freely shared.
class PartitionStrategy : public ki::KalvexManagedObject {
 public:
  static constexpr kcos::NameRef kHostClassName =
      "kalvex.bigdata.internal.executor.PartitionStrategy";

  virtual std::size_t getMinNumPartitions() const = 0;
  /// Empty for no upper limit.
  virtual std::optional<std::size_t> getMaxNumPartitions() const = 0;
  virtual bool getIsDatastorePartitioning() const = 0;
  /// True for a single value that every partition of the other inputs sees whole.
  virtual bool getIsBroadcast() const = 0;
  virtual std::size_t getMaxNumReadFailures() const = 0;

  /// Makes a partition object. Both numbers count from 1.
  /// Errors: "KALVEX:bigdata:array:InternalError" for numbers out of range.
  virtual matrix::ArrayPtr createPartition(std::size_t partitionIndex,
                                           std::size_t numPartitions) const = 0;
  virtual matrix::ArrayPtr createPartition(std::size_t partitionIndex, std::size_t numPartitions,
                                           const matrix::ArrayPtr& hadoopSplit) const = 0;

  /// A strategy with exactly `numPartitions` partitions.
  /// Errors: "KALVEX:bigdata:array:InternalError" for a number that this strategy doesn't allow.
  virtual ki::KalvexManagedPtr<PartitionStrategy> fixNumPartitions(
      std::size_t numPartitions) const = 0;

  /// Decides how many partitions an executor uses: this strategy's maximum or, if it has none,
  /// `defaultNumPartitions`; capped at `maxNumPartitions`, but at least this strategy's minimum.
  /// `flag` is passed on to strategies written in the language.
  virtual ki::KalvexManagedPtr<PartitionStrategy> resolve(std::size_t defaultNumPartitions,
                                                          std::size_t maxNumPartitions,
                                                          bool flag) const;

  virtual bool isKnownSinglePartition() const;

  virtual ~PartitionStrategy();

  // For two strategies of the same class: whether they are compatible, and their common strategy.
  virtual bool typedIsCompatible(const PartitionStrategy& other) const = 0;
  /// Errors: "KALVEX:bigdata:array:IncompatibleTallIndexing".
  virtual void typedThrowIfIncompatible(const PartitionStrategy& other) const;
  /// Returns this strategy, whatever the other one is.
  virtual ki::KalvexManagedPtr<PartitionStrategy> typedAlign(const PartitionStrategy& other) const;

  /// The maximum as a number; infinite for none.
  double getMaxNumPartitionsAsDouble() const;
  /// The maximum or, if there is none, the minimum.
  std::size_t numpartitions() const;
  /// `count` clamped to minimum and maximum; the minimum takes precedence.
  std::size_t numpartitions(std::size_t count) const;
  bool allowsSinglePartition() const;
  bool isResolved() const;

  /// True if the most derived classes are the same.
  bool isSameClass(const PartitionStrategy& other) const;
  bool isCompatible(const PartitionStrategy& other) const;
  /// Errors: "KALVEX:bigdata:array:IncompatibleTallIndexing".
  void throwIfIncompatible(const PartitionStrategy& other) const;

 protected:
  using KalvexManagedObject::KalvexManagedObject;
};

/// Errors: "KALVEX:bigdata:array:IncompatibleTallIndexing", always.
[[noreturn]] void raiseIncompatibleIndexing();

}  // namespace bigdata::executor

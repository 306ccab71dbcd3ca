#pragma once

#include <initializer_list>

#include "executor/PartitionStrategy.h"

namespace kcos {
class COSClient;
}

namespace bigdata::executor {

/// The native part of a strategy that is written in the host's language: each operation reads the
/// object's own property, or calls its own method, of the same name.
///
/// Errors: "KALVEX:bigdata:array:InternalError" with "Could not find method ", class and method if
/// a method is missing; those of the conversion of the result.
class KalvexImplementedPartitionStrategy final : public PartitionStrategy {
 public:
  KalvexImplementedPartitionStrategy(const ki::KalvexManagedConstructInfo& info,
                                     const kcos::COSClient* client);

  std::size_t getMinNumPartitions() const override;
  /// An infinite value means no limit.
  std::optional<std::size_t> getMaxNumPartitions() const override;
  bool getIsDatastorePartitioning() const override;
  bool getIsBroadcast() const override;
  std::size_t getMaxNumReadFailures() const override;
  matrix::ArrayPtr createPartition(std::size_t partitionIndex,
                                   std::size_t numPartitions) const override;
  matrix::ArrayPtr createPartition(std::size_t partitionIndex, std::size_t numPartitions,
                                   const matrix::ArrayPtr& hadoopSplit) const override;
  ki::KalvexManagedPtr<PartitionStrategy> fixNumPartitions(
      std::size_t numPartitions) const override;
  ki::KalvexManagedPtr<PartitionStrategy> resolve(std::size_t defaultNumPartitions,
                                                  std::size_t maxNumPartitions,
                                                  bool flag) const override;
  bool typedIsCompatible(const PartitionStrategy& other) const override;
  void typedThrowIfIncompatible(const PartitionStrategy& other) const override;
  ki::KalvexManagedPtr<PartitionStrategy> typedAlign(const PartitionStrategy& other) const override;

 private:
  matrix::ArrayPtr self() const;
  kcos::COSInternedBase classId() const;
  matrix::ArrayPtr property(kcos::NameRef name) const;
  /// Calls the object's method with the object as first argument.
  matrix::ArrayPtr call(kcos::NameRef method, std::initializer_list<const kxArray*> inputs) const;

  const kcos::COSClient* client_;
};

}  // namespace bigdata::executor

#pragma once

#include <cstddef>

#include "executor/PartitionStrategy.h"
#include "ki/CosClassBuilder.h"

/// The rows that the class tables of all native strategies share. Each row calls the virtual
/// operation.
namespace bigdata::executor {

template <class Strategy>
void addMinNumPartitions(ki::CosClassBuilder<Strategy>& table) {
  table.readOnly("MinNumPartitions", &PartitionStrategy::getMinNumPartitions, ki::Access::Public,
                 ki::Access::Immutable);
}

/// Adds the properties from "MinNumPartitions" on, then the methods.
template <class Strategy>
void addStrategyMembers(ki::CosClassBuilder<Strategy>& table) {
  using Base = PartitionStrategy;
  constexpr auto kPublic = ki::Access::Public;
  constexpr auto kImmutable = ki::Access::Immutable;
  table.readOnly("MaxNumPartitions", &Base::getMaxNumPartitionsAsDouble, kPublic, kImmutable)
      .readOnly("IsDatastorePartitioning", &Base::getIsDatastorePartitioning, kPublic, kImmutable)
      .readOnly("IsBroadcast", &Base::getIsBroadcast, kPublic, kImmutable)
      .readOnly("MaxNumReadFailures", &Base::getMaxNumReadFailures, kPublic, kImmutable)
      .method("createPartition", ki::overload<std::size_t, std::size_t>(&Base::createPartition))
      .method("fixNumPartitions", &Base::fixNumPartitions)
      .method("resolve", &Base::resolve)
      .method("isKnownSinglePartition", &Base::isKnownSinglePartition)
      .method("typedIsCompatible", &Base::typedIsCompatible)
      .method("typedThrowIfIncompatible", &Base::typedThrowIfIncompatible)
      .method("typedAlign", &Base::typedAlign);
}

}  // namespace bigdata::executor

#pragma once

#include <memory>

#include "kv/host/values.h"
#include "kv/runtime/Datastore.h"

namespace kv::runtime {

/// The source as a partition strategy of the session cuts it; the source itself for an empty
/// strategy and for that of the source.
///
/// The strategy is resolved with the number of the source's own partitions as default and as limit.
/// Partition `i` of `n` that it creates is a SimplePartition, the i-th n-th of the source, or a
/// SourcePartition, which names own partitions of the source. A source that can be cut finer is,
/// where `n` is above the number of its own.
///
/// Errors: those of the strategy's methods; "KALVEX:executor:Partition" with the strategy's class,
///         the partition, what was created and what would be right;
///         "KALVEX:executor:PartitionCount" with class, count and limit.
std::shared_ptr<const Datastore> partitionSource(std::shared_ptr<const Datastore> source,
                                                 const kxArray* strategy);

}  // namespace kv::runtime

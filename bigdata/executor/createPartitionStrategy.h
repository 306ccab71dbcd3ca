#pragma once

#include "executor/PartitionStrategy.h"
#include "kx/array.h"

namespace bigdata::executor {

/// The strategy that a host value denotes: `[]` or null the arbitrary one, a number a fixed one, a
/// strategy itself, a datastore its own strategy.
///
/// Errors: "KALVEX:bigdata:array:InternalError" for anything else, or a count of 0.
ki::KalvexManagedPtr<PartitionStrategy> createPartitionStrategy(const kxArray* value);

}  // namespace bigdata::executor

#pragma once

#include <cstddef>

#include "kx/array.h"

namespace bigdata::executor {

/// A "kalvex.bigdata.internal.executor.SimplePartition": partition `partitionIndex`, from 1, of
/// `numPartitions`.
matrix::ArrayPtr createSimplePartition(std::size_t partitionIndex, std::size_t numPartitions);

/// Errors: "KALVEX:bigdata:array:InternalError" if the index isn't in 1 to `numPartitions`.
void checkPartitionIndex(std::size_t partitionIndex, std::size_t numPartitions);

}  // namespace bigdata::executor

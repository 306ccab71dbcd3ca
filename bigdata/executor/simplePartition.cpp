#include "executor/simplePartition.h"

#include <string>

#include "ki/conversions.h"
#include "ki/hostCalls.h"
#include "util/InternalError.h"

namespace bigdata::executor {

matrix::ArrayPtr createSimplePartition(std::size_t partitionIndex, std::size_t numPartitions) {
  const matrix::ArrayPtr index = ki::toArray(partitionIndex);
  const matrix::ArrayPtr count = ki::toArray(numPartitions);
  return ki::callHost("kalvex.bigdata.internal.executor.SimplePartition",
                      {index.get(), count.get()});
}

void checkPartitionIndex(std::size_t partitionIndex, std::size_t numPartitions) {
  if (partitionIndex == 0 || partitionIndex > numPartitions) {
    throwInternalError("PartitionIndex used for this is " + std::to_string(partitionIndex) +
                       " when it must be between 1 and " + std::to_string(numPartitions));
  }
}

}  // namespace bigdata::executor

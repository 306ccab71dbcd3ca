#include "executor/BroadcastPartitionStrategy.h"

#include <string>

#include "executor/simplePartition.h"
#include "executor/strategyMembers.h"
#include "ki/ClassKcosRegistration.h"
#include "util/InternalError.h"

namespace bigdata::executor {

namespace {

class BroadcastPartitionStrategyCosClassInfo final
    : public ki::KalvexManagedCosClassInfo<BroadcastPartitionStrategy> {
 public:
  void initializeClass(kcos::COSClass* cls, const kcos::COSClient*) override {
    ki::CosClassBuilder<BroadcastPartitionStrategy> table(cls);
    table.superclass(PartitionStrategy::kHostClassName).constructor(ki::Access::Public);
    addMinNumPartitions(table);
    addStrategyMembers(table);
  }
};

const ki::ClassKcosRegistration<BroadcastPartitionStrategyCosClassInfo> registration;

void requireOne(std::string_view what, std::size_t value) {
  if (value != 1) {
    throwInternalError(std::string(what) + " is " + std::to_string(value) + " when it must be 1.");
  }
}

}  // namespace

BroadcastPartitionStrategy::BroadcastPartitionStrategy(const ki::KalvexManagedConstructInfo& info)
    : PartitionStrategy(info) {}

std::size_t BroadcastPartitionStrategy::getMinNumPartitions() const { return 1; }

std::optional<std::size_t> BroadcastPartitionStrategy::getMaxNumPartitions() const { return 1; }

matrix::ArrayPtr BroadcastPartitionStrategy::createPartition(std::size_t partitionIndex,
                                                             std::size_t numPartitions) const {
  requireOne("PartitionIndex used for broadcast partition", partitionIndex);
  requireOne("NumPartitions used for broadcast partition", numPartitions);
  return createSimplePartition(1, 1);
}

matrix::ArrayPtr BroadcastPartitionStrategy::createPartition(std::size_t, std::size_t,
                                                             const matrix::ArrayPtr&) const {
  throwInternalError("Cannot create a broadcast partition from Hadoop metadata.");
}

ki::KalvexManagedPtr<PartitionStrategy> BroadcastPartitionStrategy::fixNumPartitions(
    std::size_t numPartitions) const {
  requireOne("NumPartitions used to fix broadcast partition strategy", numPartitions);
  return getSelf<PartitionStrategy>();
}

bool BroadcastPartitionStrategy::typedIsCompatible(const PartitionStrategy& /*other*/) const {
  return true;
}

}  // namespace bigdata::executor

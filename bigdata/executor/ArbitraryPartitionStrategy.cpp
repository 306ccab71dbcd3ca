#include "executor/ArbitraryPartitionStrategy.h"

#include "executor/FixedNumPartitionStrategy.h"
#include "executor/simplePartition.h"
#include "executor/strategyMembers.h"
#include "ki/ClassKcosRegistration.h"
#include "ki/createManagedObject.h"
#include "util/InternalError.h"

namespace bigdata::executor {

namespace {

class ArbitraryPartitionStrategyCosClassInfo final
    : public ki::KalvexManagedCosClassInfo<ArbitraryPartitionStrategy> {
 public:
  void initializeClass(kcos::COSClass* cls, const kcos::COSClient*) override {
    ki::CosClassBuilder<ArbitraryPartitionStrategy> table(cls);
    table.superclass(PartitionStrategy::kHostClassName).constructor(ki::Access::Public);
    addMinNumPartitions(table);
    addStrategyMembers(table);
  }
};

const ki::ClassKcosRegistration<ArbitraryPartitionStrategyCosClassInfo> registration;

}  // namespace

ArbitraryPartitionStrategy::ArbitraryPartitionStrategy(const ki::KalvexManagedConstructInfo& info)
    : PartitionStrategy(info) {}

std::size_t ArbitraryPartitionStrategy::getMinNumPartitions() const { return 1; }

std::optional<std::size_t> ArbitraryPartitionStrategy::getMaxNumPartitions() const {
  return std::nullopt;
}

matrix::ArrayPtr ArbitraryPartitionStrategy::createPartition(std::size_t partitionIndex,
                                                             std::size_t numPartitions) const {
  checkPartitionIndex(partitionIndex, numPartitions);
  return createSimplePartition(partitionIndex, numPartitions);
}

matrix::ArrayPtr ArbitraryPartitionStrategy::createPartition(std::size_t, std::size_t,
                                                             const matrix::ArrayPtr&) const {
  throwInternalError("Cannot create a arbitrary partition from Hadoop metadata.");
}

ki::KalvexManagedPtr<PartitionStrategy> ArbitraryPartitionStrategy::fixNumPartitions(
    std::size_t numPartitions) const {
  return ki::createManagedObject<FixedNumPartitionStrategy>(numPartitions);
}

bool ArbitraryPartitionStrategy::typedIsCompatible(const PartitionStrategy& /*other*/) const {
  return true;
}

}  // namespace bigdata::executor

#include "executor/FixedNumPartitionStrategy.h"

#include <string>

#include "executor/simplePartition.h"
#include "executor/strategyMembers.h"
#include "ki/ClassKcosRegistration.h"
#include "util/InternalError.h"

namespace bigdata::executor {

namespace {

class FixedNumPartitionStrategyCosClassInfo final
    : public ki::KalvexManagedCosClassInfo<FixedNumPartitionStrategy> {
 public:
  void initializeClass(kcos::COSClass* cls, const kcos::COSClient*) override {
    using Strategy = FixedNumPartitionStrategy;
    ki::CosClassBuilder<Strategy> table(cls);
    table.superclass(PartitionStrategy::kHostClassName)
        .constructor(ki::Access::Private)
        .constructor<std::size_t>(ki::Access::Public)
        .property("MinNumPartitions", &Strategy::getMinNumPartitions,
                  &Strategy::setMinNumPartitions, ki::Access::Public, ki::Access::Immutable);
    addStrategyMembers(table);
  }
};

const ki::ClassKcosRegistration<FixedNumPartitionStrategyCosClassInfo> registration;

void requireCount(std::string_view what, std::size_t value, std::size_t expected) {
  if (value != expected) {
    throwInternalError("NumPartitions used " + std::string(what) + " is " + std::to_string(value) +
                       " when it must be " + std::to_string(expected));
  }
}

}  // namespace

FixedNumPartitionStrategy::FixedNumPartitionStrategy(const ki::KalvexManagedConstructInfo& info)
    : PartitionStrategy(info) {}

FixedNumPartitionStrategy::FixedNumPartitionStrategy(const ki::KalvexManagedConstructInfo& info,
                                                     std::size_t numPartitions)
    : PartitionStrategy(info), numPartitions_(numPartitions) {
  if (numPartitions == 0) {
    throwInternalError("FixedNumPartitionStrategy constructed with NumPartitions " +
                       std::to_string(numPartitions) + "when this must be >= 0.");
  }
}

std::size_t FixedNumPartitionStrategy::getMinNumPartitions() const { return numPartitions_; }

std::optional<std::size_t> FixedNumPartitionStrategy::getMaxNumPartitions() const {
  return numPartitions_;
}

matrix::ArrayPtr FixedNumPartitionStrategy::createPartition(std::size_t partitionIndex,
                                                            std::size_t numPartitions) const {
  checkPartitionIndex(partitionIndex, numPartitions_);
  requireCount("for this FixedNumPartitions", numPartitions, numPartitions_);
  return createSimplePartition(partitionIndex, numPartitions_);
}

matrix::ArrayPtr FixedNumPartitionStrategy::createPartition(std::size_t, std::size_t,
                                                            const matrix::ArrayPtr&) const {
  throwInternalError("Cannot create a FixedNumPartitionStrategy partition from Hadoop metadata.");
}

ki::KalvexManagedPtr<PartitionStrategy> FixedNumPartitionStrategy::fixNumPartitions(
    std::size_t numPartitions) const {
  requireCount("to fix this FixedNumPartitionStrategy", numPartitions, numPartitions_);
  return getSelf<PartitionStrategy>();
}

/// A caller may pass a strategy of any class; a different class isn't compatible.
bool FixedNumPartitionStrategy::typedIsCompatible(const PartitionStrategy& other) const {
  const auto* fixed = dynamic_cast<const FixedNumPartitionStrategy*>(&other);
  return fixed != nullptr && fixed->numPartitions_ == numPartitions_;
}

}  // namespace bigdata::executor

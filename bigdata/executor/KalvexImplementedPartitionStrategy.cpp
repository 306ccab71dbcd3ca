#include "executor/KalvexImplementedPartitionStrategy.h"

#include <cmath>
#include <vector>

#include "kcos/class.h"
#include "ki/conversions.h"
#include "ki/hostCalls.h"

namespace bigdata::executor {

namespace {

using ki::fromArray;
using ki::toArray;
using matrix::ArrayPtr;
using StrategyPtr = ki::KalvexManagedPtr<PartitionStrategy>;

}  // namespace

KalvexImplementedPartitionStrategy::KalvexImplementedPartitionStrategy(
    const ki::KalvexManagedConstructInfo& info, const kcos::COSClient* client)
    : PartitionStrategy(info), client_(client) {}

std::size_t KalvexImplementedPartitionStrategy::getMinNumPartitions() const {
  return ki::toSize(property("MinNumPartitions").get());
}

std::optional<std::size_t> KalvexImplementedPartitionStrategy::getMaxNumPartitions() const {
  const ArrayPtr maximum = property("MaxNumPartitions");
  if (std::isinf(ki::toDouble(maximum.get()))) {
    return std::nullopt;
  }
  return ki::toSize(maximum.get());
}

bool KalvexImplementedPartitionStrategy::getIsDatastorePartitioning() const {
  return ki::toLogical(property("IsDatastorePartitioning").get());
}

bool KalvexImplementedPartitionStrategy::getIsBroadcast() const {
  return ki::toLogical(property("IsBroadcast").get());
}

std::size_t KalvexImplementedPartitionStrategy::getMaxNumReadFailures() const {
  return ki::toSize(property("MaxNumReadFailures").get());
}

ArrayPtr KalvexImplementedPartitionStrategy::createPartition(std::size_t partitionIndex,
                                                             std::size_t numPartitions) const {
  const ArrayPtr index = toArray(partitionIndex);
  const ArrayPtr count = toArray(numPartitions);
  return call("createPartition", {index.get(), count.get()});
}

ArrayPtr KalvexImplementedPartitionStrategy::createPartition(std::size_t partitionIndex,
                                                             std::size_t numPartitions,
                                                             const ArrayPtr& hadoopSplit) const {
  const ArrayPtr index = toArray(partitionIndex);
  const ArrayPtr count = toArray(numPartitions);
  const ArrayPtr split = matrix::sharedCopy(hadoopSplit.get());
  return call("createPartition", {index.get(), count.get(), split.get()});
}

StrategyPtr KalvexImplementedPartitionStrategy::fixNumPartitions(std::size_t numPartitions) const {
  const ArrayPtr count = toArray(numPartitions);
  return fromArray<StrategyPtr>(call("fixNumPartitions", {count.get()}).get());
}

StrategyPtr KalvexImplementedPartitionStrategy::resolve(std::size_t defaultNumPartitions,
                                                        std::size_t maxNumPartitions,
                                                        bool flag) const {
  const ArrayPtr byDefault = toArray(defaultNumPartitions);
  const ArrayPtr atMost = toArray(maxNumPartitions);
  const ArrayPtr passedOn = toArray(flag);
  return fromArray<StrategyPtr>(
      call("resolve", {byDefault.get(), atMost.get(), passedOn.get()}).get());
}

bool KalvexImplementedPartitionStrategy::typedIsCompatible(const PartitionStrategy& other) const {
  const ArrayPtr partner = toArray(other.getSelf<PartitionStrategy>());
  return ki::toLogical(call("typedIsCompatible", {partner.get()}).get());
}

void KalvexImplementedPartitionStrategy::typedThrowIfIncompatible(
    const PartitionStrategy& other) const {
  const ArrayPtr object = self();
  const ArrayPtr partner = toArray(other.getSelf<PartitionStrategy>());
  ki::callHostMethodForEffect(classId(), "typedThrowIfIncompatible", client_,
                              {object.get(), partner.get()});
}

StrategyPtr KalvexImplementedPartitionStrategy::typedAlign(const PartitionStrategy& other) const {
  const ArrayPtr partner = toArray(other.getSelf<PartitionStrategy>());
  return fromArray<StrategyPtr>(call("typedAlign", {partner.get()}).get());
}

ArrayPtr KalvexImplementedPartitionStrategy::self() const {
  return toArray(getSelf<PartitionStrategy>());
}

kcos::COSInternedBase KalvexImplementedPartitionStrategy::classId() const {
  return selfInterface()->getClassObject()->getClassId();
}

ArrayPtr KalvexImplementedPartitionStrategy::property(kcos::NameRef name) const {
  return ki::readHostProperty(self().get(), name);
}

ArrayPtr KalvexImplementedPartitionStrategy::call(
    kcos::NameRef method, std::initializer_list<const kxArray*> inputs) const {
  const ArrayPtr object = self();
  std::vector<const kxArray*> all{object.get()};
  all.insert(all.end(), inputs);
  return ki::callHostMethod(classId(), method, client_, all);
}

}  // namespace bigdata::executor

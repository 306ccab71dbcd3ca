#include "executor/PartitionStrategy.h"

#include <algorithm>
#include <limits>
#include <memory>

#include "executor/KalvexImplementedPartitionStrategy.h"
#include "ki/ClassKcosRegistration.h"
#include "ki/CosClassBuilder.h"
#include "util/ErrorIds.h"

namespace bigdata::executor {

namespace {

using ki::Access;

std::unique_ptr<PartitionStrategy> makeHostImplemented(const ki::KalvexManagedConstructInfo& info,
                                                       const kcos::COSClient* client) {
  return std::make_unique<KalvexImplementedPartitionStrategy>(info, client);
}

class PartitionStrategyCosClassInfo final
    : public ki::KalvexManagedCosClassInfo<PartitionStrategy> {
 public:
  void initializeClass(kcos::COSClass* cls, const kcos::COSClient* client) override {
    client_ = client;
    using Strategy = PartitionStrategy;
    ki::CosClassBuilder<Strategy>(cls)
        .constructorFrom(
            [client](const ki::KalvexManagedConstructInfo& info) {
              return makeHostImplemented(info, client);
            },
            Access::Protected)
        .abstractProperty("MinNumPartitions", Access::Public, Access::Immutable)
        .abstractProperty("MaxNumPartitions", Access::Public, Access::Immutable)
        .abstractProperty("IsDatastorePartitioning", Access::Public, Access::Immutable)
        .abstractProperty("IsBroadcast", Access::Public, Access::Immutable)
        .abstractProperty("MaxNumReadFailures", Access::Public, Access::Immutable)
        .method("getMinNumPartitions", &Strategy::getMinNumPartitions)
        .method("getMaxNumPartitions", &Strategy::getMaxNumPartitionsAsDouble)
        .abstractMethod("createPartition")
        .abstractMethod("fixNumPartitions")
        .abstractMethod("resolve")
        .method("numpartitions", ki::overload<>(&Strategy::numpartitions))
        .method("numpartitions", ki::overload<std::size_t>(&Strategy::numpartitions))
        .abstractMethod("isKnownSinglePartition")
        .method("allowsSinglePartition", &Strategy::allowsSinglePartition)
        .method("isResolved", &Strategy::isResolved)
        .method("isCompatible", &Strategy::isCompatible)
        .method("throwIfIncompatible", &Strategy::throwIfIncompatible)
        .abstractMethod("typedIsCompatible", Access::Protected)
        .abstractMethod("typedThrowIfIncompatible", Access::Protected)
        .abstractMethod("typedAlign", Access::Protected);
  }

 protected:
  PartitionStrategy* createHostImplemented(const ki::KalvexManagedConstructInfo& info) override {
    return makeHostImplemented(info, client_).release();
  }

 private:
  const kcos::COSClient* client_ = nullptr;
};

const ki::ClassKcosRegistration<PartitionStrategyCosClassInfo> registration;

}  // namespace

void raiseIncompatibleIndexing() {
  foundation::core::except::raise<KALVEX::bigdata::array::IncompatibleTallIndexing>();
}

PartitionStrategy::~PartitionStrategy() = default;

ki::KalvexManagedPtr<PartitionStrategy> PartitionStrategy::resolve(std::size_t defaultNumPartitions,
                                                                   std::size_t maxNumPartitions,
                                                                   bool /*flag*/) const {
  const std::size_t wanted = getMaxNumPartitions().value_or(defaultNumPartitions);
  return fixNumPartitions(std::max(std::min(wanted, maxNumPartitions), getMinNumPartitions()));
}

bool PartitionStrategy::isKnownSinglePartition() const {
  return getMaxNumPartitions() == std::optional<std::size_t>(1);
}

void PartitionStrategy::typedThrowIfIncompatible(const PartitionStrategy& other) const {
  if (!typedIsCompatible(other)) {
    raiseIncompatibleIndexing();
  }
}

ki::KalvexManagedPtr<PartitionStrategy> PartitionStrategy::typedAlign(
    const PartitionStrategy& /*other*/) const {
  return getSelf<PartitionStrategy>();
}

double PartitionStrategy::getMaxNumPartitionsAsDouble() const {
  const std::optional<std::size_t> maximum = getMaxNumPartitions();
  return maximum ? static_cast<double>(*maximum) : std::numeric_limits<double>::infinity();
}

std::size_t PartitionStrategy::numpartitions() const {
  const std::optional<std::size_t> maximum = getMaxNumPartitions();
  return maximum ? *maximum : getMinNumPartitions();
}

std::size_t PartitionStrategy::numpartitions(std::size_t count) const {
  const std::size_t atMost = std::min(getMaxNumPartitions().value_or(count), count);
  return std::max(atMost, getMinNumPartitions());
}

bool PartitionStrategy::allowsSinglePartition() const { return getMinNumPartitions() == 1; }

bool PartitionStrategy::isResolved() const {
  const std::optional<std::size_t> maximum = getMaxNumPartitions();
  return maximum && *maximum == getMinNumPartitions();
}

bool PartitionStrategy::isSameClass(const PartitionStrategy& other) const {
  return selfInterface()->getClassObject()->getClassId() ==
         other.selfInterface()->getClassObject()->getClassId();
}

bool PartitionStrategy::isCompatible(const PartitionStrategy& other) const {
  return &other == this || (isSameClass(other) && typedIsCompatible(other));
}

void PartitionStrategy::throwIfIncompatible(const PartitionStrategy& other) const {
  if (&other == this) {
    return;
  }
  if (!isSameClass(other)) {
    raiseIncompatibleIndexing();
  }
  typedThrowIfIncompatible(other);
}

}  // namespace bigdata::executor

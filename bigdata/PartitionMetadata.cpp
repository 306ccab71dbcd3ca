#include "PartitionMetadata.h"

#include <utility>
#include <vector>

#include "executor/StrategyAlignment.h"
#include "executor/createPartitionStrategy.h"
#include "ki/ClassKcosRegistration.h"
#include "ki/CosClassBuilder.h"
#include "ki/checkCounts.h"
#include "ki/createManagedObject.h"
#include "ki/hostCalls.h"
#include "kv/bigdata.h"

namespace bigdata {

namespace {

using ki::Access;
using matrix::ArrayPtr;
using MetadataPtr = ki::KalvexManagedPtr<PartitionMetadata>;
using StrategyPtr = ki::KalvexManagedPtr<executor::PartitionStrategy>;

class PartitionMetadataCosClassInfo final
    : public ki::KalvexManagedCosClassInfo<PartitionMetadata> {
 public:
  void initializeClass(kcos::COSClass* cls, const kcos::COSClient*) override {
    ki::CosClassBuilder<PartitionMetadata>(cls)
        .constructor(Access::Private)
        .constructor<ArrayPtr>(Access::Public)
        .property("Strategy", &PartitionMetadata::getStrategy, &PartitionMetadata::setStrategy,
                  Access::Public, Access::Immutable);
  }
};

const ki::ClassKcosRegistration<PartitionMetadataCosClassInfo> registration;

/// Null if the input is null or has no strategy.
StrategyPtr strategyOf(const kxArray* input) {
  const MetadataPtr metadata = ki::fromArray<MetadataPtr>(input);
  const PartitionMetadata* present = metadata.get();
  return present == nullptr ? nullptr : present->getStrategy().lock();
}

/// The strategy of a metadata input as a host value; null if it has none.
ArrayPtr strategyArrayOf(const kxArray* input) {
  const MetadataPtr metadata = ki::fromArray<MetadataPtr>(input);
  const PartitionMetadata* present = metadata.get();
  return present == nullptr ? nullptr : ki::toArray(present->getStrategy());
}

ArrayPtr newMetadata(const StrategyPtr& strategy) {
  return ki::toArray(ki::createManagedObject<PartitionMetadata>(strategy));
}

}  // namespace

PartitionMetadata::PartitionMetadata(const ki::KalvexManagedConstructInfo& info)
    : KalvexManagedObject(info) {}

PartitionMetadata::PartitionMetadata(const ki::KalvexManagedConstructInfo& info,
                                     ArrayPtr partitioning)
    : PartitionMetadata(info, executor::createPartitionStrategy(partitioning.get())) {}

PartitionMetadata::PartitionMetadata(const ki::KalvexManagedConstructInfo& info,
                                     const StrategyPtr& strategy)
    : KalvexManagedObject(info), strategy_(selfInterface(), strategy) {}

void PartitionMetadata::setStrategy(const StrategyPtr& strategy) {
  strategy_ = {selfInterface(), strategy};
}

void alignPartitionMetadataBuiltin(int nlhs, ArrayPtr* plhs, int nrhs, const kxArray** prhs) {
  ki::checkOutputs(nlhs, 1);
  executor::StrategyAlignment alignment;
  for (int i = 0; i < nrhs; ++i) {
    alignment.add(strategyOf(prhs[i]));
  }
  plhs[0] = newMetadata(alignment.resultOrBroadcast());
}

void vertcatPartitionMetadataBuiltin(int nlhs, ArrayPtr* plhs, int nrhs, const kxArray** prhs) {
  ki::checkOutputs(nlhs, 1);
  ki::checkMinInputs(nrhs, 1);
  std::vector<ArrayPtr> strategies;
  std::vector<const kxArray*> inputs;
  strategies.reserve(static_cast<std::size_t>(nrhs));
  inputs.reserve(static_cast<std::size_t>(nrhs));
  for (int i = 0; i < nrhs; ++i) {
    strategies.push_back(strategyArrayOf(prhs[i]));
    inputs.push_back(strategies.back().get());
  }
  const ArrayPtr concatenated =
      ki::callHost("kalvex.bigdata.internal.executor.ConcatenatedPartitionStrategy", inputs);
  plhs[0] = newMetadata(ki::fromArray<StrategyPtr>(concatenated.get()));
}

}  // namespace bigdata

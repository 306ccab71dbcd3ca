#include "executor/StrategyAlignment.h"

#include "executor/BroadcastPartitionStrategy.h"
#include "ki/checkCounts.h"
#include "ki/conversions.h"
#include "ki/createManagedObject.h"
#include "kv/bigdata.h"

namespace bigdata::executor {

using StrategyPtr = ki::KalvexManagedPtr<PartitionStrategy>;

void StrategyAlignment::add(const StrategyPtr& strategy) {
  if (!strategy || strategy->getIsBroadcast()) {
    return;
  }
  if (!result_) {
    result_ = strategy;
    return;
  }
  if (!result_->isSameClass(*strategy)) {
    raiseIncompatibleIndexing();
  }
  result_ = result_->typedAlign(*strategy);
}

StrategyPtr StrategyAlignment::resultOrBroadcast() const {
  return result_ ? result_ : ki::createManagedObject<BroadcastPartitionStrategy>();
}

void alignPartitionStrategyBuiltin(int nlhs, matrix::ArrayPtr* plhs, int nrhs,
                                   const kxArray** prhs) {
  ki::checkOutputs(nlhs, 1);
  StrategyAlignment alignment;
  for (int i = 0; i < nrhs; ++i) {
    alignment.add(ki::fromArray<StrategyPtr>(prhs[i]));
  }
  plhs[0] = ki::toArray(alignment.resultOrBroadcast());
}

}  // namespace bigdata::executor

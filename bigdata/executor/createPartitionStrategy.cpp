#include "executor/createPartitionStrategy.h"

#include "executor/FixedNumPartitionStrategy.h"
#include "ki/checkCounts.h"
#include "ki/conversions.h"
#include "ki/createManagedObject.h"
#include "ki/hostCalls.h"
#include "kv/bigdata.h"
#include "util/InternalError.h"

namespace bigdata::executor {

namespace {

using matrix::ArrayPtr;
using StrategyPtr = ki::KalvexManagedPtr<PartitionStrategy>;

bool isEmptyDouble(const kxArray* value) {
  return value == nullptr || (kxIsEmpty(value) && kxGetClassID(value) == kxDOUBLE_CLASS);
}

bool isDatastore(const kxArray* value) {
  return ki::toLogical(
      ki::callHost("kalvex.io.datastore.internal.shim.isDatastore", {value}).get());
}

StrategyPtr asStrategy(const ArrayPtr& value) { return ki::fromArray<StrategyPtr>(value.get()); }

}  // namespace

StrategyPtr createPartitionStrategy(const kxArray* value) {
  if (isEmptyDouble(value)) {
    return asStrategy(ki::callHost("kalvex.bigdata.internal.executor.ArbitraryPartitionStrategy"));
  }
  if (!kxIsScalar(value)) {
    throwInternalError("createPartitionStrategy expects a scalar input");
  }
  if (kxIsNumeric(value)) {
    return ki::createManagedObject<FixedNumPartitionStrategy>(ki::toSize(value));
  }
  if (kxIsA(value, PartitionStrategy::kHostClassName)) {
    return ki::fromArray<StrategyPtr>(value);
  }
  if (isDatastore(value)) {
    return asStrategy(
        ki::callHost("kalvex.bigdata.internal.executor.DatastorePartitionStrategy", {value}));
  }
  throwInternalError("Invalid input for createPartitionStrategy");
}

void createPartitionStrategyBuiltin(int nlhs, ArrayPtr* plhs, int nrhs, const kxArray** prhs) {
  ki::checkOutputs(nlhs, 1);
  ki::checkInputs(nrhs, 1, 1);
  plhs[0] = ki::toArray(createPartitionStrategy(matrix::sharedCopy(prhs[0]).get()));
}

}  // namespace bigdata::executor

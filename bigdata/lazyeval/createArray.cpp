#include "lazyeval/createArray.h"

#include <utility>

#include "PartitionMetadata.h"
#include "kcos/calls.h"
#include "ki/checkCounts.h"
#include "ki/conversions.h"
#include "ki/createManagedObject.h"
#include "ki/hostCalls.h"
#include "kv/bigdata.h"
#include "lazyeval/ClosureFuture.h"
#include "lazyeval/LazyPartitionedArray.h"
#include "lazyeval/Operation.h"
#include "lazyeval/applyOperation.h"
#include "lazyeval/parseArrayInput.h"
#include "util/InternalError.h"

namespace bigdata::lazyeval {

using ki::KalvexManagedPtr;
using matrix::ArrayPtr;

namespace {

using LazyArrayPtr = KalvexManagedPtr<LazyPartitionedArray>;

bool isMetadata(const kxArray* value) { return kxIsA(value, ki::classKey<PartitionMetadata>()); }

/// A failure is reported with the stack of the caller.
ArrayPtr copyDatastore(const ArrayPtr& datastore) {
  try {
    return ki::callHost("copy", {datastore.get()});
  } catch (const Torvane::KException::KExceptionEnvelope& failure) {
    const ArrayPtr exception =
        matrix::from_kalvex(kcos::omCreateKCOSScalar(failure.getException()));
    const ArrayPtr option = matrix::create("IncludeCalleeStack");
    const ArrayPtr isIncluded = matrix::from_kalvex(kxCreateLogicalScalar(true));
    ki::callHostForEffect("kalvex.bigdata.internal.throw",
                          {exception.get(), option.get(), isIncluded.get()});
    throw;
  }
}

}  // namespace

LazyArrayPtr createFromConstant(ArrayPtr constant, ArrayPtr executor) {
  ParsedArrayInput input = parseArrayInput(constant.get());
  if (input.strategy || input.executor != nullptr) {
    throwInternalError("Constant input cannot be a partitioned array");
  }
  KalvexManagedPtr<PartitionMetadata> metadata = makeBroadcastMetadata();
  if (executor == nullptr) {
    executor = defaultExecutor();
  }
  return ki::createManagedObject<LazyPartitionedArray>(
      ArrayConstructionArgs{std::move(input.future), std::move(metadata), std::move(executor)});
}

LazyArrayPtr createFromDatastore(ArrayPtr datastore) {
  ArrayPtr copy = copyDatastore(datastore);
  ki::callHostForEffect(
      "kalvex.bigdata.internal.executor.PartitionedArrayExecutor.checkDatastoreSupportForDefault",
      {copy.get()});
  const ArrayPtr numOutputs = matrix::from_kalvex(kxCreateDoubleScalar(1.0));
  auto operation = ki::fromArray<KalvexManagedPtr<Operation>>(
      ki::callHost("kalvex.bigdata.internal.lazyeval.ReadOperation", {copy.get(), numOutputs.get()})
          .get());
  auto metadata = ki::createManagedObject<PartitionMetadata>(std::move(copy));
  kxArray* output = nullptr;
  applyOperation(std::move(operation), std::move(metadata), 1, &output, 0, nullptr);
  return ki::fromArray<LazyArrayPtr>(matrix::from_kalvex(output).get());
}

LazyArrayPtr createFromFuture(KalvexManagedPtr<ClosureFuture> future, ArrayPtr partitioning,
                              ArrayPtr executor) {
  if (!future) {
    throwInternalError("Expected a valid kalvex.bigdata.internal.lazyeval.ClosureFuture object.");
  }
  auto metadata = isMetadata(partitioning.get())
                      ? ki::fromArray<KalvexManagedPtr<PartitionMetadata>>(partitioning.get())
                      : ki::createManagedObject<PartitionMetadata>(std::move(partitioning));
  if (kxIsEmpty(executor.get())) {
    executor = defaultExecutor();
  }
  return ki::createManagedObject<LazyPartitionedArray>(
      ArrayConstructionArgs{std::move(future), std::move(metadata), std::move(executor)});
}

void createFromConstantBuiltin(int nlhs, ArrayPtr* plhs, int nrhs, const kxArray** prhs) {
  ki::checkOutputs(nlhs, 1);
  ki::checkInputs(nrhs, 1, 2);
  plhs[0] = ki::toArray(createFromConstant(matrix::sharedCopy(prhs[0]),
                                           nrhs > 1 ? matrix::sharedCopy(prhs[1]) : nullptr));
}

void createFromDatastoreBuiltin(int nlhs, ArrayPtr* plhs, int nrhs, const kxArray** prhs) {
  ki::checkOutputs(nlhs, 1);
  ki::checkInputs(nrhs, 1, 1);
  plhs[0] = ki::toArray(createFromDatastore(matrix::sharedCopy(prhs[0])));
}

void createFromFutureBuiltin(int nlhs, ArrayPtr* plhs, int nrhs, const kxArray** prhs) {
  ki::checkOutputs(nlhs, 1);
  ki::checkInputs(nrhs, 2, 3);
  plhs[0] = ki::toArray(createFromFuture(ki::fromArray<KalvexManagedPtr<ClosureFuture>>(prhs[0]),
                                         matrix::sharedCopy(prhs[1]),
                                         nrhs > 2 ? matrix::sharedCopy(prhs[2]) : nullptr));
}

void applyOperationBuiltin(int nlhs, kxArray** plhs, int nrhs, const kxArray** prhs) {
  ki::checkMinInputs(nrhs, 1);
  auto operation = ki::fromArray<KalvexManagedPtr<Operation>>(prhs[0]);
  KalvexManagedPtr<PartitionMetadata> metadata;
  int numLeading = 1;
  if (nrhs > 1 && isMetadata(prhs[1])) {
    metadata = ki::fromArray<KalvexManagedPtr<PartitionMetadata>>(prhs[1]);
    numLeading = 2;
  }
  applyOperation(std::move(operation), std::move(metadata), nlhs, plhs, nrhs - numLeading,
                 prhs + numLeading);
}

}  // namespace bigdata::lazyeval

// The one decision of recording: an operation whose inputs are complete and partition independent
// is evaluated at once if its class allows it, since there is nothing to wait for. All other
// operations are recorded. In both cases nothing is left half made: output slots are freed if a
// call fails, and inputs are copied before user code runs, since that code may complete promises.

#include "lazyeval/applyOperation.h"

#include <algorithm>
#include <boost/container/small_vector.hpp>
#include <cassert>
#include <cstddef>
#include <string>
#include <utility>
#include <vector>

#include "PartitionMetadata.h"
#include "executor/BroadcastPartitionStrategy.h"
#include "ki/conversions.h"
#include "ki/createManagedObject.h"
#include "ki/hostCalls.h"
#include "kv/host/rawOutputs.h"
#include "lazyeval/Closure.h"
#include "lazyeval/ClosureFuture.h"
#include "lazyeval/ClosurePromise.h"
#include "lazyeval/LazyPartitionedArray.h"
#include "lazyeval/Operation.h"
#include "lazyeval/parseArrayInput.h"
#include "util/InternalError.h"

namespace bigdata::lazyeval {

using executor::PartitionStrategy;
using ki::KalvexManagedPtr;
using matrix::ArrayPtr;

namespace {

using Futures = std::vector<KalvexManagedPtr<ClosureFuture>>;

/// What the arrays of one call have in common.
struct SharedParts {
  KalvexManagedPtr<PartitionMetadata> metadata;
  ArrayPtr executor;

  kxArray* makeArray(KalvexManagedPtr<ClosureFuture> future) const {
    ArrayConstructionArgs args{std::move(future), metadata, matrix::sharedCopy(executor.get())};
    return matrix::to_kalvex(
        ki::toArray(ki::createManagedObject<LazyPartitionedArray>(std::move(args))));
  }
};

bool areAllIndependent(const Futures& futures) {
  return std::ranges::all_of(futures, [](const KalvexManagedPtr<ClosureFuture>& future) {
    return future->getPromise()->isPartitionIndependent();
  });
}

bool areAllDone(const Futures& futures) {
  return std::ranges::all_of(
      futures, [](const KalvexManagedPtr<ClosureFuture>& future) { return future->isDone(); });
}

void evaluateNow(Operation& operation, const Futures& futures, const SharedParts& parts, int nlhs,
                 kxArray** plhs) {
  kv::host::RawOutputs outputs(nlhs);
  // The promises may get other values while the operation runs.
  boost::container::small_vector<ArrayPtr, 4> values;
  boost::container::small_vector<const kxArray*, 4> inputs;
  values.reserve(futures.size());
  inputs.reserve(futures.size());
  for (const KalvexManagedPtr<ClosureFuture>& future : futures) {
    values.push_back(matrix::sharedCopy(future->getValue()));
    inputs.push_back(values.back().get());
  }
  operation.directEvaluate(nlhs, outputs.data(), static_cast<int>(inputs.size()), inputs.data());
  for (int i = 0; i < nlhs; ++i) {
    plhs[i] = parts.makeArray(wrapConstant(outputs.take(static_cast<std::size_t>(i))));
  }
}

void record(const KalvexManagedPtr<Operation>& operation, Futures futures, bool areIndependent,
            const SharedParts& parts, int nlhs, kxArray** plhs) {
  const auto closure = ki::createManagedObject<Closure>(std::move(futures), operation);
  const auto& promises = closure->getOutputPromises();
  if (nlhs > 0 && static_cast<std::size_t>(nlhs) > promises.size()) {
    throwInternalError("Requested " + std::to_string(nlhs) +
                       " outputs from an operation that generates at most " +
                       std::to_string(closure->getOperation()->getNumOutputs()));
  }
  for (int i = 0; i < nlhs; ++i) {
    ClosurePromise& promise = *promises[static_cast<std::size_t>(i)];
    ArrayPtr array = matrix::from_kalvex(parts.makeArray(promise.getFuture().lock()));
    if (!areIndependent) {
      promise.setPartitionIndependent(false);
    }
    plhs[i] = matrix::to_kalvex(std::move(array));
  }
}

}  // namespace

void applyOperation(KalvexManagedPtr<Operation> operation,
                    KalvexManagedPtr<PartitionMetadata> metadata, int nlhs, kxArray** plhs,
                    int nrhs, const kxArray** prhs) {
  assert(plhs != nullptr);
  ParsedArrayInputs inputs = parseArrayInputs(nrhs, prhs);
  if (!metadata) {
    metadata = inputs.strategy ? ki::createManagedObject<PartitionMetadata>(inputs.strategy)
                               : makeBroadcastMetadata();
  }
  if (inputs.executor == nullptr) {
    inputs.executor = defaultExecutor();
  }
  const SharedParts parts{std::move(metadata), std::move(inputs.executor)};
  const bool areIndependent = areAllIndependent(inputs.futures);
  const bool areDone = areAllDone(inputs.futures);
  if (areIndependent && areDone && operation->supportsDirectEvaluation()) {
    evaluateNow(*operation, inputs.futures, parts, nlhs, plhs);
  } else {
    record(operation, std::move(inputs.futures), areIndependent, parts, nlhs, plhs);
  }
}

KalvexManagedPtr<PartitionMetadata> makeBroadcastMetadata() {
  const KalvexManagedPtr<PartitionStrategy> strategy =
      ki::createManagedObject<executor::BroadcastPartitionStrategy>();
  return ki::createManagedObject<PartitionMetadata>(strategy);
}

ArrayPtr defaultExecutor() {
  return ki::callHost("kalvex.bigdata.internal.executor.PartitionedArrayExecutor.default");
}

}  // namespace bigdata::lazyeval

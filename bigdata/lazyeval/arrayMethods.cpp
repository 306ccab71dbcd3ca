#include "lazyeval/arrayMethods.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <span>
#include <utility>

#include "FunctionHandle.h"
#include "PartitionMetadata.h"
#include "PartitionedArrayOptions.h"
#include "ki/conversions.h"
#include "ki/hostCalls.h"
#include "lazyeval/ClosurePromise.h"
#include "lazyeval/LazyPartitionedArray.h"
#include "lazyeval/Operation.h"
#include "lazyeval/applyOperation.h"

namespace bigdata::lazyeval {
using ki::KalvexManagedPtr;
using matrix::ArrayPtr;

namespace {
/// As metadata: it follows from the inputs.
constexpr std::nullptr_t kFromInputs = nullptr;

/// Makes an operation by its host constructor, with `inputs` in that order.
template <class... Inputs>
KalvexManagedPtr<Operation> makeOperation(kcos::NameRef className, Inputs&&... inputs) {
  const std::array<ArrayPtr, sizeof...(Inputs)> owned = {
      ki::toArray(std::forward<Inputs>(inputs))...};
  std::array<const kxArray*, sizeof...(Inputs)> list;
  std::ranges::transform(owned, list.begin(), &ArrayPtr::get);
  return ki::fromArray<KalvexManagedPtr<Operation>>(
      ki::callHost(className, std::span<const kxArray* const>(list)).get());
}

/// Counts go to host constructors as doubles.
double count(int number) { return number; }

/// The promise behind an input that is a lazy array; null for any other input.
ClosurePromise* promiseOf(const kxArray* input) {
  if (!kxIsA(input, ki::hostClassName<LazyPartitionedArray>())) {
    return nullptr;
  }
  return &ki::fromArray<KalvexManagedPtr<LazyPartitionedArray>>(input)->promise();
}

}  // namespace

void elementfun(OptionsPtr options, FunctionPtr function, int nlhs, kxArray** plhs, int nrhs,
                const kxArray** prhs) {
  applyOperation(makeOperation("kalvex.bigdata.internal.lazyeval.ElementwiseOperation", options,
                               function, count(nrhs), count(nlhs)),
                 kFromInputs, nlhs, plhs, nrhs, prhs);
}

void subsrefTabularVar(ArrayPtr first, ArrayPtr second, bool flag, int nlhs, kxArray** plhs,
                       int nrhs, const kxArray** prhs) {
  applyOperation(makeOperation("kalvex.bigdata.internal.lazyeval.SubsrefTabularVarOperation",
                               count(nrhs), count(nlhs), flag, std::move(first), std::move(second)),
                 kFromInputs, nlhs, plhs, nrhs, prhs);
}

void filterslices(int nlhs, kxArray** plhs, int nrhs, const kxArray** prhs) {
  // Without inputs this wraps to a count that the constructor refuses.
  const std::size_t numFiltered = static_cast<std::size_t>(nrhs) - 1;
  applyOperation(makeOperation("kalvex.bigdata.internal.lazyeval.FilterOperation", numFiltered),
                 kFromInputs, nlhs, plhs, nrhs, prhs);
}

void reducefun(OptionsPtr options, FunctionPtr function, int nlhs, kxArray** plhs, int nrhs,
               const kxArray** prhs) {
  FunctionPtr reduce = function;
  aggregatefun(std::move(options), std::move(function), std::move(reduce), nlhs, plhs, nrhs, prhs);
}

void aggregatefun(OptionsPtr options, FunctionPtr perChunk, FunctionPtr reduce, int nlhs,
                  kxArray** plhs, int nrhs, const kxArray** prhs) {
  auto operation = makeOperation("kalvex.bigdata.internal.lazyeval.AggregateOperation", options,
                                 perChunk, reduce, count(nrhs), count(nlhs));
  applyOperation(std::move(operation), makeBroadcastMetadata(), nlhs, plhs, nrhs, prhs);
}

void clientfun(OptionsPtr options, FunctionPtr function, int nlhs, kxArray** plhs, int nrhs,
               const kxArray** prhs) {
  auto operation = makeOperation("kalvex.bigdata.internal.lazyeval.NonPartitionedOperation",
                                 options, function, count(nrhs), count(nlhs));
  applyOperation(std::move(operation), makeBroadcastMetadata(), nlhs, plhs, nrhs, prhs);
}

void isPartitionIndependent(int /*nlhs*/, kxArray** plhs, int nrhs, const kxArray** prhs) {
  const bool isIndependent = std::all_of(prhs, prhs + nrhs, [](const kxArray* input) {
    const ClosurePromise* promise = promiseOf(input);
    return promise == nullptr || promise->isPartitionIndependent();
  });
  plhs[0] = kxCreateLogicalScalar(isIndependent);
}

void markPartitionIndependent(int nlhs, kxArray** plhs, int nrhs, const kxArray** prhs) {
  for (int i = 0; i < nrhs; ++i) {
    if (ClosurePromise* promise = promiseOf(prhs[i])) {
      promise->setPartitionIndependent(true);
    }
    if (i < nlhs) {
      plhs[i] = matrix::to_kalvex(matrix::sharedCopy(prhs[i]));
    }
  }
}

}  // namespace bigdata::lazyeval

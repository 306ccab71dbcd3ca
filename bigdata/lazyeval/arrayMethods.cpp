// Every primitive of the array is the same three steps: name an operation class, call its host
// constructor with the leading values and the counts, apply the result. The functions differ only
// in the class, in the constructor's inputs and in the metadata of the result, so each is a few
// lines on top of the helpers below.

#include "lazyeval/arrayMethods.h"

#include <algorithm>
#include <array>
#include <span>
#include <utility>
#include <vector>

#include "FunctionHandle.h"
#include "PartitionMetadata.h"
#include "PartitionedArrayOptions.h"
#include "kcos/calls.h"
#include "ki/checkCounts.h"
#include "ki/conversions.h"
#include "ki/createManagedObject.h"
#include "ki/hostCalls.h"
#include "lazyeval/ClosurePromise.h"
#include "lazyeval/LazyPartitionedArray.h"
#include "lazyeval/Operation.h"
#include "lazyeval/applyOperation.h"
#include "lazyeval/makeOperation.h"
#include "util/InternalError.h"

namespace bigdata::lazyeval {
using ki::KalvexManagedPtr;
using matrix::ArrayPtr;

namespace {

/// Passed as metadata: derive it from the inputs.
constexpr std::nullptr_t kFromInputs = nullptr;

/// Counts go to host constructors as doubles.
double count(int number) { return number; }

/// The number of inputs after the first. Without inputs it wraps to a number that constructors
/// refuse.
std::size_t countAfterFirst(const RawCall& call) { return static_cast<std::size_t>(call.nrhs) - 1; }

void apply(KalvexManagedPtr<Operation> operation, MetadataPtr metadata, const RawCall& call) {
  applyOperation(std::move(operation), std::move(metadata), call.nlhs, call.plhs, call.nrhs,
                 call.prhs);
}

/// Applies an operation whose constructor takes (options, function, numInputs, numOutputs, ...).
template <class... Extra>
void applyFunction(kcos::NameRef className, MetadataPtr metadata, const OptionsPtr& options,
                   const FunctionPtr& function, const RawCall& call, Extra... extra) {
  apply(makeOperation(className, options, function, count(call.nrhs), count(call.nlhs), extra...),
        std::move(metadata), call);
}

/// Makes an operation whose constructor takes (options, chunk function, function of its results,
/// numInputs, numOutputs).
KalvexManagedPtr<Operation> makeReduction(kcos::NameRef className, const OptionsPtr& options,
                                          const FunctionPtr& perChunk, const FunctionPtr& reduce,
                                          const RawCall& call) {
  return makeOperation(className, options, perChunk, reduce, count(call.nrhs), count(call.nlhs));
}

/// Metadata of an array whose number of partitions is open.
MetadataPtr makeArbitraryMetadata() {
  return ki::createManagedObject<PartitionMetadata>(
      matrix::from_kalvex(kxCreateDoubleMatrix(0, 0, 0)));
}

/// The promise of an input that is a lazy array; null for any other input.
ClosurePromise* promiseOf(const kxArray* input) {
  if (!kxIsA(input, ki::classKey<LazyPartitionedArray>())) {
    return nullptr;
  }
  return &ki::fromArray<KalvexManagedPtr<LazyPartitionedArray>>(input)->promise();
}

void makeOutputsDependent(const RawCall& call) {
  for (int i = 0; i < call.nlhs; ++i) {
    ki::fromArray<KalvexManagedPtr<LazyPartitionedArray>>(call.plhs[i])
        ->promise()
        .setPartitionIndependent(false);
  }
}

}  // namespace

void elementfun(OptionsPtr options, FunctionPtr function, const RawCall& call) {
  applyFunction("kalvex.bigdata.internal.lazyeval.ElementwiseOperation", kFromInputs, options,
                function, call);
}

void smallTallComparison(OptionsPtr options, FunctionPtr function, ArrayPtr operand, bool flag,
                         const RawCall& call) {
  apply(makeOperation("kalvex.bigdata.internal.lazyeval.SmallTallComparisonOperation", options,
                      function, std::move(operand), flag, count(call.nrhs), count(call.nlhs)),
        kFromInputs, call);
}

void logicalElementfun(OptionsPtr options, FunctionPtr function, const RawCall& call) {
  applyFunction("kalvex.bigdata.internal.lazyeval.LogicalElementwiseOperation", kFromInputs,
                options, function, call);
}

void assertAdaptorCorrect(OptionsPtr options, FunctionPtr function, const RawCall& call) {
  applyFunction("kalvex.bigdata.internal.lazyeval.AdaptorAssertionOperation", kFromInputs, options,
                function, call);
}

void slicefun(OptionsPtr options, FunctionPtr function, const RawCall& call) {
  applyFunction("kalvex.bigdata.internal.lazyeval.SlicewiseOperation", kFromInputs, options,
                function, call);
}

void strictslicefun(OptionsPtr options, FunctionPtr function, const RawCall& call) {
  constexpr bool kAllowTallDimExpansion = false;
  applyFunction("kalvex.bigdata.internal.lazyeval.SlicewiseOperation", kFromInputs, options,
                function, call, kAllowTallDimExpansion);
}

void ternaryfun(const RawCall& call) {
  ki::checkOutputs(call.nlhs, 1);
  ki::checkInputs(call.nrhs, 3, 3);
  const ArrayPtr condition = ki::callHost("kalvex.bigdata.internal.broadcast", {call.prhs[0]});
  std::array<const kxArray*, 3> inputs{condition.get(), call.prhs[1], call.prhs[2]};
  apply(makeOperation("kalvex.bigdata.internal.lazyeval.TernaryOperation"), kFromInputs,
        {call.nlhs, call.plhs, static_cast<int>(inputs.size()), inputs.data()});
}

void subsrefTabularVar(ArrayPtr first, ArrayPtr second, bool flag, const RawCall& call) {
  apply(
      makeOperation("kalvex.bigdata.internal.lazyeval.SubsrefTabularVarOperation", count(call.nrhs),
                    count(call.nlhs), flag, std::move(first), std::move(second)),
      kFromInputs, call);
}

void filterslices(const RawCall& call) {
  apply(makeOperation("kalvex.bigdata.internal.lazyeval.FilterOperation", countAfterFirst(call)),
        kFromInputs, call);
}

void logicalRowSubsref(const RawCall& call) {
  apply(makeOperation("kalvex.bigdata.internal.lazyeval.LogicalRowSubsrefOperation",
                      countAfterFirst(call)),
        kFromInputs, call);
}

void reducefun(OptionsPtr options, FunctionPtr function, const RawCall& call) {
  FunctionPtr reduce = function;
  aggregatefun(std::move(options), std::move(function), std::move(reduce), call);
}

void aggregatefun(OptionsPtr options, FunctionPtr perChunk, FunctionPtr reduce,
                  const RawCall& call) {
  auto operation = makeReduction("kalvex.bigdata.internal.lazyeval.AggregateOperation", options,
                                 perChunk, reduce, call);
  apply(std::move(operation), makeBroadcastMetadata(), call);
}

void reducebykeyfun(OptionsPtr options, FunctionPtr function, const RawCall& call) {
  FunctionPtr reduce = function;
  aggregatebykeyfun(std::move(options), std::move(function), std::move(reduce), call);
}

void aggregatebykeyfun(OptionsPtr options, FunctionPtr perChunk, FunctionPtr reduce,
                       const RawCall& call) {
  auto operation = makeReduction("kalvex.bigdata.internal.lazyeval.AggregateByKeyOperation",
                                 options, perChunk, reduce, call);
  apply(std::move(operation), makeArbitraryMetadata(), call);
}

void joinbykey(const RawCall& /*call*/) {
  throwInternalError("Method PartitionedArray/joinbykey is currently not supported.");
}

void chunkfun(OptionsPtr options, FunctionPtr function, const RawCall& call) {
  applyFunction("kalvex.bigdata.internal.lazyeval.ChunkwiseOperation", kFromInputs, options,
                function, call);
}

void fixedchunkfun(OptionsPtr options, std::size_t numSlices, FunctionPtr function,
                   const RawCall& call) {
  apply(makeOperation("kalvex.bigdata.internal.lazyeval.FixedChunkwiseOperation", options,
                      numSlices, function, count(call.nrhs), count(call.nlhs)),
        kFromInputs, call);
}

void partitionfun(OptionsPtr options, FunctionPtr function, const RawCall& call) {
  applyFunction("kalvex.bigdata.internal.lazyeval.PartitionwiseOperation", kFromInputs, options,
                function, call);
  makeOutputsDependent(call);
}

void generalpartitionfun(OptionsPtr options, FunctionPtr function, const RawCall& call) {
  applyFunction("kalvex.bigdata.internal.lazyeval.GeneralizedPartitionwiseOperation", kFromInputs,
                options, function, call);
  makeOutputsDependent(call);
}

void partitionheadfun(OptionsPtr options, FunctionPtr function, const RawCall& call) {
  constexpr bool kHeadOnly = true;
  applyFunction("kalvex.bigdata.internal.lazyeval.PartitionwiseOperation", kFromInputs, options,
                function, call, kHeadOnly);
  makeOutputsDependent(call);
}

void clientfun(OptionsPtr options, FunctionPtr function, const RawCall& call) {
  auto operation = makeOperation("kalvex.bigdata.internal.lazyeval.NonPartitionedOperation",
                                 options, function, count(call.nrhs), count(call.nlhs));
  apply(std::move(operation), makeBroadcastMetadata(), call);
}

void alignpartitions(const RawCall& call) {
  inCallFcn(call.nlhs, call.plhs, call.nrhs, call.prhs,
            "kalvex.bigdata.internal.lazyeval.alignpartitions");
}

void repartition(MetadataPtr metadata, const RawCall& call) {
  auto operation = makeOperation("kalvex.bigdata.internal.lazyeval.RepartitionOperation",
                                 ki::toArray(metadata->getStrategy()), countAfterFirst(call));
  apply(std::move(operation), std::move(metadata), call);
}

void resizechunks(const RawCall& call) {
  ki::checkMinInputs(call.nrhs, call.nlhs);
  const ArrayPtr numArrays = ki::toArray(count(call.nlhs));
  std::vector<const kxArray*> inputs{numArrays.get()};
  inputs.insert(inputs.end(), call.prhs + call.nlhs, call.prhs + call.nrhs);
  apply(makeOperationFrom("kalvex.bigdata.internal.lazyeval.ChunkResizeOperation", inputs),
        kFromInputs, {call.nlhs, call.plhs, call.nlhs, call.prhs});
}

void isPartitionIndependent(const RawCall& call) {
  const std::span inputs(call.prhs, static_cast<std::size_t>(call.nrhs));
  const bool isIndependent = std::ranges::all_of(inputs, [](const kxArray* input) {
    const ClosurePromise* promise = promiseOf(input);
    return promise == nullptr || promise->isPartitionIndependent();
  });
  call.plhs[0] = kxCreateLogicalScalar(isIndependent);
}

void markPartitionIndependent(const RawCall& call) {
  for (int i = 0; i < call.nrhs; ++i) {
    if (ClosurePromise* promise = promiseOf(call.prhs[i])) {
      promise->setPartitionIndependent(true);
    }
    if (i < call.nlhs) {
      call.plhs[i] = matrix::to_kalvex(matrix::sharedCopy(call.prhs[i]));
    }
  }
}

}  // namespace bigdata::lazyeval

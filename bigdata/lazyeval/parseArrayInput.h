#pragma once

#include <vector>

#include "ki/KalvexManagedPtr.h"
#include "kx/array.h"
#include "lazyeval/lazyGraph.h"

namespace bigdata::executor {
class PartitionStrategy;
}

namespace bigdata::lazyeval {

/// What an operation needs of one input. Constants bring neither executor nor strategy.
struct ParsedArrayInput {
  matrix::ArrayPtr executor;
  ki::KalvexManagedPtr<executor::PartitionStrategy> strategy;
  ki::KalvexManagedPtr<ClosureFuture> future;
};

/// What an operation needs of all its inputs: the executor and the aligned strategy, if any input
/// brought one, and a future for each input, in order.
struct ParsedArrayInputs {
  matrix::ArrayPtr executor;
  ki::KalvexManagedPtr<executor::PartitionStrategy> strategy;
  std::vector<ki::KalvexManagedPtr<ClosureFuture>> futures;
};

/// Reduces any host value. A lazy array gives its stored executor, its strategy and its future; a
/// LocalArray the value inside; a BroadcastArray around a lazy array a new broadcast array;
/// anything else is a constant as it stands.
///
/// Errors: an internal error for another implementation of PartitionedArray.
ParsedArrayInput parseArrayInput(const kxArray* input);

/// Reduces all inputs. Strategies that aren't broadcast are aligned; executors must agree, which is
/// the executor's to say where they aren't the same value.
///
/// Errors: "KALVEX:bigdata:array:IncompatibleTallIndexing"; "KALVEX:bigdata:array:
///         IncompatibleTallExecutor"; those of the host's calls.
ParsedArrayInputs parseArrayInputs(int nrhs, const kxArray** prhs);

/// The future of a new promise that is complete with `value`.
ki::KalvexManagedPtr<ClosureFuture> wrapConstant(matrix::ArrayPtr value);

/// `input`, or the value inside where it is a LocalArray; `holder` keeps that alive.
const kxArray* unwrapLocalArray(const kxArray* input, matrix::ArrayPtr& holder);

}  // namespace bigdata::lazyeval

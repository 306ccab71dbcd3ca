#pragma once

#include <vector>

#include "ki/KalvexManagedPtr.h"
#include "kx/array.h"
#include "lazyeval/lazyGraph.h"

namespace bigdata::executor {
class PartitionStrategy;
}

namespace bigdata::lazyeval {

/// What an operation needs of one input. Constants have neither executor nor strategy.
struct ParsedArrayInput {
  matrix::ArrayPtr executor;
  ki::KalvexManagedPtr<executor::PartitionStrategy> strategy;
  ki::KalvexManagedPtr<ClosureFuture> future;
};

/// What an operation needs of all its inputs: the executor and the aligned strategy, if any input
/// has one, and a future for each input, in order.
struct ParsedArrayInputs {
  matrix::ArrayPtr executor;
  ki::KalvexManagedPtr<executor::PartitionStrategy> strategy;
  std::vector<ki::KalvexManagedPtr<ClosureFuture>> futures;
};

/// Reduces any host value to these parts. A lazy array gives its stored executor, its strategy and
/// its future; a LocalArray the value inside; a BroadcastArray around a lazy array a new broadcast
/// array. Anything else is a constant.
///
/// Errors: an internal error for another implementation of PartitionedArray.
ParsedArrayInput parseArrayInput(const kxArray* input);

/// Reduces all inputs. Strategies that aren't broadcast are aligned. Executors must agree; if they
/// aren't the same value, the executor decides.
///
/// Errors: "KALVEX:bigdata:array:IncompatibleTallIndexing"; "KALVEX:bigdata:array:
///         IncompatibleTallExecutor"; those of the host's calls.
ParsedArrayInputs parseArrayInputs(int nrhs, const kxArray** prhs);

/// The future of a new promise that is complete and holds `value`.
ki::KalvexManagedPtr<ClosureFuture> wrapConstant(matrix::ArrayPtr value);

/// The value inside `input` if it is a LocalArray, kept alive by `holder`; otherwise `input`.
const kxArray* unwrapLocalArray(const kxArray* input, matrix::ArrayPtr& holder);

}  // namespace bigdata::lazyeval

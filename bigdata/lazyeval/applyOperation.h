#pragma once

#include "ki/KalvexManagedPtr.h"
#include "kx/array.h"
#include "lazyeval/lazyGraph.h"

namespace bigdata {
class PartitionMetadata;
}

namespace bigdata::lazyeval {

class LazyPartitionedArray;

/// The one way to get from an operation and inputs to new arrays.
///
/// If all inputs are complete and partition independent and the operation allows it, it is
/// evaluated at once and the arrays are complete. Otherwise a closure is recorded, no data is
/// touched, and the arrays depend on partitioning as their inputs do.
///
/// Result:   `plhs[0 .. nlhs - 1]`, each an array owned by the caller; all share one metadata
///           object and one executor. If `metadata` is null, it is derived from the inputs.
/// Requires: room for max(nlhs, 1) outputs.
/// Errors:   those of parseArrayInputs; an internal error if more outputs are requested than the
///           operation has; those of the host's calls.
void applyOperation(ki::KalvexManagedPtr<Operation> operation,
                    ki::KalvexManagedPtr<PartitionMetadata> metadata, int nlhs, kxArray** plhs,
                    int nrhs, const kxArray** prhs);

/// Metadata of an array that has the broadcast strategy.
ki::KalvexManagedPtr<PartitionMetadata> makeBroadcastMetadata();

/// The host's executor for arrays that bring none.
matrix::ArrayPtr defaultExecutor();

}  // namespace bigdata::lazyeval

#pragma once

#include "ki/KalvexManagedPtr.h"
#include "kx/array.h"
#include "lazyeval/lazyGraph.h"

namespace bigdata::lazyeval {

class LazyPartitionedArray;

/// An array of a value that is there. A LocalArray is unwrapped. `executor` may be null, which
/// stands for the default one; an empty value is stored as it is.
///
/// Errors: an internal error if `constant` is a lazy array.
ki::KalvexManagedPtr<LazyPartitionedArray> createFromConstant(matrix::ArrayPtr constant,
                                                              matrix::ArrayPtr executor);

/// An array of what a copy of `datastore` reads.
///
/// Errors: those of "copy", with the caller's stack; those of the check whether the default
///         executor can read the datastore.
ki::KalvexManagedPtr<LazyPartitionedArray> createFromDatastore(matrix::ArrayPtr datastore);

/// An array of a future. `partitioning` is a PartitionMetadata or whatever a strategy can be made
/// from; `executor` may be null or empty, which stands for the default one.
///
/// Errors: an internal error if `future` is null.
ki::KalvexManagedPtr<LazyPartitionedArray> createFromFuture(
    ki::KalvexManagedPtr<ClosureFuture> future, matrix::ArrayPtr partitioning,
    matrix::ArrayPtr executor);

}  // namespace bigdata::lazyeval

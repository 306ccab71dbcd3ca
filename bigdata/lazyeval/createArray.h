#pragma once

#include "ki/KalvexManagedPtr.h"
#include "kx/array.h"
#include "lazyeval/lazyGraph.h"

namespace bigdata::lazyeval {

class LazyPartitionedArray;

/// An array of an available value. A LocalArray is unwrapped. If `executor` is null, the default
/// one is used; an empty value is stored as it is.
///
/// Errors: an internal error if `constant` is a lazy array.
ki::KalvexManagedPtr<LazyPartitionedArray> createFromConstant(matrix::ArrayPtr constant,
                                                              matrix::ArrayPtr executor);

/// An array that reads from a copy of `datastore`.
///
/// Errors: those of "copy", with the caller's stack; those of the check that the default executor
///         can read the datastore.
ki::KalvexManagedPtr<LazyPartitionedArray> createFromDatastore(matrix::ArrayPtr datastore);

/// An array of a future. `partitioning` is a PartitionMetadata or a value that denotes a strategy.
/// If `executor` is null or empty, the default one is used.
///
/// Errors: an internal error if `future` is null.
ki::KalvexManagedPtr<LazyPartitionedArray> createFromFuture(
    ki::KalvexManagedPtr<ClosureFuture> future, matrix::ArrayPtr partitioning,
    matrix::ArrayPtr executor);

}  // namespace bigdata::lazyeval

#pragma once

#include "ki/KalvexManagedPtr.h"
#include "lazyeval/RawCall.h"

/// Marking arrays for reuse: a cache node before an array asks the executor to keep the computed
/// value. The cache itself is the host's.
namespace bigdata::lazyeval {

class LazyPartitionedArray;

/// Inserts a cache node before the array's value, in place: later readers of the array go through
/// the node, earlier ones don't. The node's promise has the old promise's metadata and is partition
/// independent.
///
/// Errors: those of the node's host constructor; the array is unchanged then.
void addCacheOperation(const ki::KalvexManagedPtr<LazyPartitionedArray>& array);

/// Marks every input. The first input is returned even if no output is requested; in general, one
/// output more than requested is set.
///
/// Requires: room for nlhs + 1 outputs.
/// Errors: "KALVEX:validateattributes:invalidType" for an input that isn't a lazy array;
///         "KALVEX:class:InvalidHandle" for `[]`. The inputs before it are marked.
void markforreuse(const RawCall& call);

/// Marks `successor`, which replaces `old`, and links its cache entry to that of `old` while both
/// are pending, so that the host can find what was cached under the old key.
///
/// Requires: `old` is pending after a cache node, as `markforreuse` leaves it, or one of the two is
///           complete.
/// Errors: those of the host's calls; `successor` may have its node already.
void updateforreuse(LazyPartitionedArray& old,
                    ki::KalvexManagedPtr<LazyPartitionedArray> successor);

}  // namespace bigdata::lazyeval

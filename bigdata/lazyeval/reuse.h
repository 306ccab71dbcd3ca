#pragma once

#include "ki/KalvexManagedPtr.h"
#include "lazyeval/RawCall.h"

/// Marking arrays for reuse: asking the executor to keep a computed value, by a cache node in front
/// of it. The cache itself is the host's.
namespace bigdata::lazyeval {

class LazyPartitionedArray;

/// Puts a cache node in front of the array's value, in place: what reads the array from now on goes
/// through the node, and what read it before doesn't. The node's promise has the old one's metadata
/// and is partition independent.
///
/// Errors: those of the node's host constructor; the array is as it was then.
void addCacheOperation(const ki::KalvexManagedPtr<LazyPartitionedArray>& array);

/// Marks every input. The first input comes back even if no output is asked for, and in general one
/// output more than is asked for is written.
///
/// Requires: room for nlhs + 1 outputs.
/// Errors: "KALVEX:validateattributes:invalidType" for an input that isn't a lazy array;
///         "KALVEX:class:InvalidHandle" for `[]`. The inputs before it are marked.
void markforreuse(const RawCall& call);

/// Marks `successor`, which takes the place of `old`, and ties its cache entry to that of `old`
/// while both are pending, so that the host can find what was cached under the old key.
///
/// Requires: `old` is pending behind a cache node, as `markforreuse` leaves it, or one of the
///           two is complete.
/// Errors: those of the host's calls; `successor` may have its node by then.
void updateforreuse(LazyPartitionedArray& old,
                    ki::KalvexManagedPtr<LazyPartitionedArray> successor);

}  // namespace bigdata::lazyeval

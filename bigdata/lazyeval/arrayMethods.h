#pragma once

#include <cstddef>

#include "ki/KalvexManagedPtr.h"
#include "kx/array.h"
#include "lazyeval/RawCall.h"

namespace bigdata {
class FunctionHandle;
class PartitionMetadata;
class PartitionedArrayOptions;
}  // namespace bigdata

/// The primitives of the lazy array. Each names an operation class of the host, makes an instance
/// from the leading values and the counts of inputs and outputs, and applies it; none looks at
/// data. The leading values come first, then the raw call without them.
///
/// Errors: those of the operation's constructor, after which nothing is recorded, and of
///         `applyOperation`.
namespace bigdata::lazyeval {

using OptionsPtr = ki::KalvexManagedPtr<PartitionedArrayOptions>;
using FunctionPtr = ki::KalvexManagedPtr<FunctionHandle>;
using MetadataPtr = ki::KalvexManagedPtr<PartitionMetadata>;

// Functions of elements and slices.

/// Applies a function to matching elements.
void elementfun(OptionsPtr options, FunctionPtr function, const RawCall& call);

/// Compares a small operand with a large one; what `operand` and `flag` say is the operation
/// class's to know.
void smallTallComparison(OptionsPtr options, FunctionPtr function, matrix::ArrayPtr operand,
                         bool flag, const RawCall& call);

/// Applies a function with logical results to matching elements.
void logicalElementfun(OptionsPtr options, FunctionPtr function, const RawCall& call);

/// Checks, when it runs, that the inputs are what was assumed of them.
void assertAdaptorCorrect(OptionsPtr options, FunctionPtr function, const RawCall& call);

/// Applies a function slice by slice.
void slicefun(OptionsPtr options, FunctionPtr function, const RawCall& call);

/// The same, and inputs with one slice don't spread over the others' slices.
void strictslicefun(OptionsPtr options, FunctionPtr function, const RawCall& call);

/// Chooses elements of the second or the third input by the first, the condition.
/// Errors: also "KALVEX:TooManyOutputs" above one, "KALVEX:TooManyInputs", "KALVEX:NotEnoughInputs"
///         for any other count than three.
void ternaryfun(const RawCall& call);

// Choosing variables and slices.

/// Picks variables of tables; what `first`, `second` and `flag` say is the operation class's to
/// know.
void subsrefTabularVar(matrix::ArrayPtr first, matrix::ArrayPtr second, bool flag,
                       const RawCall& call);

/// Keeps the slices that the first input selects of the other inputs.
void filterslices(const RawCall& call);

/// The same, as an index expression by a logical array.
void logicalRowSubsref(const RawCall& call);

// Reductions.

/// Reduces with one function for chunks and for what they gave.
void reducefun(OptionsPtr options, FunctionPtr function, const RawCall& call);

/// Reduces chunks with `perChunk`, and what they gave with `reduce`; the result is broadcast.
void aggregatefun(OptionsPtr options, FunctionPtr perChunk, FunctionPtr reduce,
                  const RawCall& call);

/// Both by key; how many partitions the result has is open.
void reducebykeyfun(OptionsPtr options, FunctionPtr function, const RawCall& call);
void aggregatebykeyfun(OptionsPtr options, FunctionPtr perChunk, FunctionPtr reduce,
                       const RawCall& call);

/// Errors: an internal error, always.
[[noreturn]] void joinbykey(const RawCall& call);

// Functions of chunks, partitions and whole values.

/// Applies a function to chunks.
void chunkfun(OptionsPtr options, FunctionPtr function, const RawCall& call);

/// Applies a function to chunks of `numSlices` slices.
void fixedchunkfun(OptionsPtr options, std::size_t numSlices, FunctionPtr function,
                   const RawCall& call);

/// Apply a function to the chunks of each partition, which it is told; `partitionheadfun` asks for
/// the heads of partitions only. The results depend on partitioning.
///
/// Errors: also an internal error where an input was complete and gave a complete result.
void partitionfun(OptionsPtr options, FunctionPtr function, const RawCall& call);
void generalpartitionfun(OptionsPtr options, FunctionPtr function, const RawCall& call);
void partitionheadfun(OptionsPtr options, FunctionPtr function, const RawCall& call);

/// Applies a function to whole values, in the client; the result is broadcast.
void clientfun(OptionsPtr options, FunctionPtr function, const RawCall& call);

// Partitioning.

/// Gives the inputs the same partitions: the host's function of that name.
void alignpartitions(const RawCall& call);

/// Moves slices to the partitions that the first input names; the result has `metadata`.
void repartition(MetadataPtr metadata, const RawCall& call);

/// Changes the size of the chunks of the first `nlhs` inputs; the others say how.
/// Errors: also "KALVEX:NotEnoughInputs" with fewer inputs than outputs.
void resizechunks(const RawCall& call);

/// Whether no lazy array among the inputs depends on partitioning: one logical, whatever `nlhs`.
void isPartitionIndependent(const RawCall& call);

/// Marks the lazy arrays among the inputs as partition independent and passes all inputs through.
void markPartitionIndependent(const RawCall& call);

}  // namespace bigdata::lazyeval

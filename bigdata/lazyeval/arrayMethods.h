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
/// from the leading values and the counts of inputs and outputs, and applies it. None reads data.
/// The leading values come first, then the raw call without them.
///
/// Errors: those of the operation's constructor, after which nothing is recorded, and those of
///         `applyOperation`.
namespace bigdata::lazyeval {

using OptionsPtr = ki::KalvexManagedPtr<PartitionedArrayOptions>;
using FunctionPtr = ki::KalvexManagedPtr<FunctionHandle>;
using MetadataPtr = ki::KalvexManagedPtr<PartitionMetadata>;

// Functions of elements and slices.

/// Applies a function to matching elements.
void elementfun(OptionsPtr options, FunctionPtr function, const RawCall& call);

/// Compares a small operand with a large one. The operation class defines what `operand` and `flag`
/// mean.
void smallTallComparison(OptionsPtr options, FunctionPtr function, matrix::ArrayPtr operand,
                         bool flag, const RawCall& call);

/// Applies a function with logical results to matching elements.
void logicalElementfun(OptionsPtr options, FunctionPtr function, const RawCall& call);

/// Checks, when it runs, that the inputs are as assumed.
void assertAdaptorCorrect(OptionsPtr options, FunctionPtr function, const RawCall& call);

/// Applies a function slice by slice.
void slicefun(OptionsPtr options, FunctionPtr function, const RawCall& call);

/// The same, but inputs with one slice aren't expanded to the slices of the others.
void strictslicefun(OptionsPtr options, FunctionPtr function, const RawCall& call);

/// Chooses elements of the second or third input according to the first, the condition.
/// Errors: also "KALVEX:TooManyOutputs" above one, "KALVEX:TooManyInputs", "KALVEX:NotEnoughInputs"
///         for any number of inputs but three.
void ternaryfun(const RawCall& call);

// Selecting variables and slices.

/// Selects variables of tables. The operation class defines what `first`, `second` and `flag` mean.
void subsrefTabularVar(matrix::ArrayPtr first, matrix::ArrayPtr second, bool flag,
                       const RawCall& call);

/// Keeps the slices of the other inputs that the first input selects.
void filterslices(const RawCall& call);

/// The same, written as an index expression with a logical array.
void logicalRowSubsref(const RawCall& call);

// Reductions.

/// Reduces with one function, used both for chunks and for their results.
void reducefun(OptionsPtr options, FunctionPtr function, const RawCall& call);

/// Reduces chunks with `perChunk` and their results with `reduce`; the result is broadcast.
void aggregatefun(OptionsPtr options, FunctionPtr perChunk, FunctionPtr reduce,
                  const RawCall& call);

/// The same two by key; the number of partitions of the result is open.
void reducebykeyfun(OptionsPtr options, FunctionPtr function, const RawCall& call);
void aggregatebykeyfun(OptionsPtr options, FunctionPtr perChunk, FunctionPtr reduce,
                       const RawCall& call);

/// Errors: an internal error, always.
[[noreturn]] void joinbykey(const RawCall& call);

// Functions of chunks, partitions and materialised values.

/// Applies a function to chunks.
void chunkfun(OptionsPtr options, FunctionPtr function, const RawCall& call);

/// Applies a function to chunks of `numSlices` slices.
void fixedchunkfun(OptionsPtr options, std::size_t numSlices, FunctionPtr function,
                   const RawCall& call);

/// Apply a function to the chunks of each partition and pass it the partition.
/// `partitionheadfun` reads only the heads of partitions. The results depend on partitioning.
///
/// Errors: also an internal error if an input was complete and so the result is, too.
void partitionfun(OptionsPtr options, FunctionPtr function, const RawCall& call);
void generalpartitionfun(OptionsPtr options, FunctionPtr function, const RawCall& call);
void partitionheadfun(OptionsPtr options, FunctionPtr function, const RawCall& call);

/// Applies a function to materialised values, in the client; the result is broadcast.
void clientfun(OptionsPtr options, FunctionPtr function, const RawCall& call);

// Partitioning.

/// Gives the inputs the same partitions, through the host function of that name.
void alignpartitions(const RawCall& call);

/// Moves slices to the partitions given by the first input; the result has `metadata`.
void repartition(MetadataPtr metadata, const RawCall& call);

/// Changes the chunk size of the first `nlhs` inputs as the remaining inputs specify.
/// Errors: also "KALVEX:NotEnoughInputs" with fewer inputs than outputs.
void resizechunks(const RawCall& call);

/// True if no lazy array among the inputs depends on partitioning: one logical, whatever `nlhs`.
void isPartitionIndependent(const RawCall& call);

/// Marks the lazy arrays among the inputs as partition independent and returns all inputs.
void markPartitionIndependent(const RawCall& call);

}  // namespace bigdata::lazyeval

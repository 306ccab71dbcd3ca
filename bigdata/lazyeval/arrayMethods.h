#pragma once

#include "ki/KalvexManagedPtr.h"
#include "kx/array.h"

namespace bigdata {
class FunctionHandle;
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

/// Applies a function to matching elements.
void elementfun(OptionsPtr options, FunctionPtr function, int nlhs, kxArray** plhs, int nrhs,
                const kxArray** prhs);

/// Picks variables of tables; what `first`, `second` and `flag` say is the operation class's to
/// know.
void subsrefTabularVar(matrix::ArrayPtr first, matrix::ArrayPtr second, bool flag, int nlhs,
                       kxArray** plhs, int nrhs, const kxArray** prhs);

/// Keeps the slices that the first input selects of the other inputs.
void filterslices(int nlhs, kxArray** plhs, int nrhs, const kxArray** prhs);

/// Reduces with one function for chunks and for what they gave.
void reducefun(OptionsPtr options, FunctionPtr function, int nlhs, kxArray** plhs, int nrhs,
               const kxArray** prhs);

/// Reduces chunks with `perChunk`, and what they gave with `reduce`; the result is broadcast.
void aggregatefun(OptionsPtr options, FunctionPtr perChunk, FunctionPtr reduce, int nlhs,
                  kxArray** plhs, int nrhs, const kxArray** prhs);

/// Applies a function to whole values, in the client; the result is broadcast.
void clientfun(OptionsPtr options, FunctionPtr function, int nlhs, kxArray** plhs, int nrhs,
               const kxArray** prhs);

/// Whether no lazy array among the inputs depends on partitioning: one logical, whatever `nlhs`.
void isPartitionIndependent(int nlhs, kxArray** plhs, int nrhs, const kxArray** prhs);

/// Marks the lazy arrays among the inputs as partition independent and passes all inputs through.
void markPartitionIndependent(int nlhs, kxArray** plhs, int nrhs, const kxArray** prhs);

}  // namespace bigdata::lazyeval

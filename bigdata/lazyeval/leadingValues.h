#pragma once

#include <cstddef>

#include "ki/KalvexManagedPtr.h"
#include "kx/array.h"

namespace bigdata {
class FunctionHandle;
class PartitionMetadata;
class PartitionedArrayOptions;
}  // namespace bigdata

namespace bigdata::lazyeval {

/// The inputs of a raw call; leading values are taken from the front.
struct RawInputs {
  int nrhs;
  const kxArray** prhs;

  /// Removes and returns the next input.
  /// Errors: "KALVEX:NotEnoughInputs".
  const kxArray* next();
};

/// Takes a leading value of type `T` from the front of `inputs`, by the rule of its kind:
///
/// - options: the next input if it holds options; otherwise default options, and no input is taken.
///   Options that require random state and have no stream factory get one, in place.
/// - function handle: a FunctionHandle, or a plain function_handle, which is wrapped. An internal
///   error for anything else.
/// - host array, `bool`, `std::size_t`: the next input, or the value inside a LocalArray.
/// - metadata: an internal error for `[]`.
///
/// Errors: "KALVEX:NotEnoughInputs" if a value that isn't optional is missing; those of the
///         conversions.
template <class T>
T takeLeading(RawInputs& inputs);

template <>
ki::KalvexManagedPtr<PartitionedArrayOptions> takeLeading(RawInputs& inputs);
template <>
ki::KalvexManagedPtr<FunctionHandle> takeLeading(RawInputs& inputs);
template <>
ki::KalvexManagedPtr<PartitionMetadata> takeLeading(RawInputs& inputs);
template <>
matrix::ArrayPtr takeLeading(RawInputs& inputs);
template <>
bool takeLeading(RawInputs& inputs);
template <>
std::size_t takeLeading(RawInputs& inputs);

}  // namespace bigdata::lazyeval

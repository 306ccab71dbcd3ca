#pragma once

#include <cstddef>

#include "kx/array.h"

namespace bigdata::lazyeval {

/// The inputs of the host constructors of operations: (numInputs, numOutputs,
/// supportsPreview = false, dependsOnOnlyHead = false).
struct OperationArguments {
  std::size_t numInputs = 0;
  std::size_t numOutputs = 0;
  bool supportsPreview = false;
  bool dependsOnOnlyHead = false;
};

/// Reads constructor inputs, the last one first.
///
/// Errors: "KALVEX:NotEnoughInputs" or "KALVEX:TooManyInputs" before any conversion;
///         "KALVEX:validateattributes:invalidType" for an input of the wrong kind.
OperationArguments parseOperationArguments(int nrhs, const kxArray** prhs);

}  // namespace bigdata::lazyeval

#pragma once

#include <cstddef>

#include "lazyeval/Operation.h"

namespace bigdata {
class FunctionHandle;
}

namespace bigdata::lazyeval {

/// An operation that works slice by slice, so that a chain of such operations can be fused into one
/// pass over the data. The optimiser fuses; this class answers its questions.
class SlicewiseFusableOperation : public Operation {
 public:
  static constexpr kcos::NameRef kHostClassName =
      "kalvex.bigdata.internal.lazyeval.SlicewiseFusableOperation";

  /// The function to apply, which reports failures in the way that the class chooses. Not null.
  virtual ki::KalvexManagedPtr<FunctionHandle> getCheckedFunctionHandle() const = 0;

  virtual bool isSlicewiseFusable() const = 0;

  /// The common rule: no random state, and a function that takes any number of slices.
  /// `getCheckedFunctionHandle` isn't called for an operation with random state.
  ///
  /// Errors: "KALVEX:class:InvalidHandle" if the function's handle is null or was deleted.
  bool isSlicewiseFusableDefault() const;

 protected:
  explicit SlicewiseFusableOperation(const ki::KalvexManagedConstructInfo& info);
  SlicewiseFusableOperation(const ki::KalvexManagedConstructInfo& info, std::size_t numInputs,
                            std::size_t numOutputs, bool supportsPreview, bool dependsOnOnlyHead);

  /// The result of the host side's method "getCheckedFunctionHandle" in a new wrapper, unbounded
  /// and with the current user stack.
  ki::KalvexManagedPtr<FunctionHandle> callGetCheckedFunctionHandle() const;
};

/// True if the function accepts any number of slices at a time.
bool takesAnyNumberOfSlices(const FunctionHandle& function);

}  // namespace bigdata::lazyeval

#pragma once

#include <cstddef>

#include "lazyeval/Operation.h"

namespace bigdata {
class FunctionHandle;
}

namespace bigdata::lazyeval {

/// An operation that works slice by slice, so that a chain of such operations can be joined into
/// one pass over the data. The joining is the optimiser's; this answers what it asks.
class SlicewiseFusableOperation : public Operation {
 public:
  static constexpr kcos::NameRef kHostClassName =
      "kalvex.bigdata.internal.lazyeval.SlicewiseFusableOperation";

  /// The function to apply, with its failures reported as the class sees fit. Not null.
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

  /// What the host side's method "getCheckedFunctionHandle" gives, in a new wrapper: unbounded and
  /// with the current user stack.
  ki::KalvexManagedPtr<FunctionHandle> callGetCheckedFunctionHandle() const;
};

/// True if the function has no bound on the slices that it takes at a time.
bool takesAnyNumberOfSlices(const FunctionHandle& function);

}  // namespace bigdata::lazyeval

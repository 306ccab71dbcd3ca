#pragma once

#include <cstddef>

#include "lazyeval/SlicewiseFusableOperation.h"

namespace bigdata::lazyeval {

/// Applies a function to matching elements of its inputs.
///
/// 1. A function that takes any number of slices at a time is evaluated directly if all inputs are
///    available, and may be fused unless it needs random state. A bounded one is neither.
/// 2. The code that runs it belongs to the class's host side. This class holds the data and answers
///    the planner.
class ElementwiseOperation final : public SlicewiseFusableOperation {
 public:
  static constexpr kcos::NameRef kHostClassName =
      "kalvex.bigdata.internal.lazyeval.ElementwiseOperation";

  /// For load and for subclasses: no inputs, no outputs, an empty function, default options.
  explicit ElementwiseOperation(const ki::KalvexManagedConstructInfo& info);

  /// Errors: "KALVEX:class:InvalidHandle" if `functionHandle` is null or was deleted.
  ElementwiseOperation(const ki::KalvexManagedConstructInfo& info,
                       ki::KalvexManagedPtr<PartitionedArrayOptions> options,
                       ki::KalvexManagedPtr<FunctionHandle> functionHandle, std::size_t numInputs,
                       std::size_t numOutputs);

  ~ElementwiseOperation() override;

  matrix::ArrayPtr createExecutionTasks(const kxArray* first, const kxArray* second) override;

  /// A new wrapper around the host side's handle, unbounded and with the current user stack.
  ki::KalvexManagedPtr<FunctionHandle> getCheckedFunctionHandle() const override;

  bool isSlicewiseFusable() const override;

  const ki::PropertyPtr<FunctionHandle>& getFunctionHandle() const { return functionHandle_; }
  void setFunctionHandle(ki::KalvexManagedPtr<FunctionHandle> functionHandle);

 protected:
  void directEvaluateImpl(int nlhs, kxArray** plhs, int nrhs, const kxArray** prhs) override;

 private:
  ki::PropertyPtr<FunctionHandle> functionHandle_;
};

}  // namespace bigdata::lazyeval

#pragma once

#include <cstddef>

#include "lazyeval/SlicewiseFusableOperation.h"

namespace bigdata::lazyeval {

/// Applies a function to its inputs slice by slice. It is never evaluated directly.
///
/// How it runs is code of the class's host side: this holds the data and answers the planner.
class SlicewiseOperation final : public SlicewiseFusableOperation {
 public:
  static constexpr kcos::NameRef kHostClassName =
      "kalvex.bigdata.internal.lazyeval.SlicewiseOperation";

  /// No inputs, no outputs, an empty function, default options: for load.
  explicit SlicewiseOperation(const ki::KalvexManagedConstructInfo& info);

  /// `allowTallDimExpansion`: an input with one slice spreads over the slices of the others.
  SlicewiseOperation(const ki::KalvexManagedConstructInfo& info,
                     ki::KalvexManagedPtr<PartitionedArrayOptions> options,
                     ki::KalvexManagedPtr<FunctionHandle> functionHandle, std::size_t numInputs,
                     std::size_t numOutputs, bool allowTallDimExpansion);
  SlicewiseOperation(const ki::KalvexManagedConstructInfo& info,
                     ki::KalvexManagedPtr<PartitionedArrayOptions> options,
                     ki::KalvexManagedPtr<FunctionHandle> functionHandle, std::size_t numInputs,
                     std::size_t numOutputs);

  ~SlicewiseOperation() override;

  matrix::ArrayPtr createExecutionTasks(const kxArray* first, const kxArray* second) override;

  /// A new wrapper around what the host side gives, unbounded and with the current user stack.
  ki::KalvexManagedPtr<FunctionHandle> getCheckedFunctionHandle() const override;

  /// No random state, a function that takes any number of slices, and slices that may spread.
  bool isSlicewiseFusable() const override;

  const ki::PropertyPtr<FunctionHandle>& getFunctionHandle() const { return functionHandle_; }
  void setFunctionHandle(ki::KalvexManagedPtr<FunctionHandle> functionHandle);
  bool allowsTallDimExpansion() const { return allowTallDimExpansion_; }
  void setAllowTallDimExpansion(bool flag) { allowTallDimExpansion_ = flag; }

 private:
  ki::PropertyPtr<FunctionHandle> functionHandle_;
  bool allowTallDimExpansion_ = true;
};

}  // namespace bigdata::lazyeval

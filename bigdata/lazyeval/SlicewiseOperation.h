#pragma once

#include <cstddef>

#include "lazyeval/SlicewiseFusableOperation.h"

namespace bigdata::lazyeval {

/// Applies a function to its inputs slice by slice. It is never evaluated directly.
///
/// The code that runs it belongs to the class's host side. This class holds the data and answers
/// the planner.
class SlicewiseOperation final : public SlicewiseFusableOperation {
 public:
  static constexpr kcos::NameRef kHostClassName =
      "kalvex.bigdata.internal.lazyeval.SlicewiseOperation";

  /// For load: no inputs, no outputs, an empty function, default options.
  explicit SlicewiseOperation(const ki::KalvexManagedConstructInfo& info);

  /// `allowTallDimExpansion`: an input with one slice is expanded to the slices of the others.
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

  /// A new wrapper around the host side's handle, unbounded and with the current user stack.
  ki::KalvexManagedPtr<FunctionHandle> getCheckedFunctionHandle() const override;

  /// True without random state, for a function of any number of slices, if inputs may be expanded.
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

#pragma once

#include <cstddef>

#include "ki/KalvexManagedObject.h"
#include "ki/KalvexManagedPtr.h"
#include "ki/PropertyArrayPtr.h"
#include "ki/PropertyPtr.h"

namespace bigdata {
class PartitionedArrayOptions;
}

namespace bigdata::lazyeval {

/// What a node of the lazy graph computes, as far as the graph and the planner need to know without
/// running it, and the two ways to run it: `createExecutionTasks` for a plan, `directEvaluate` if
/// all inputs are available.
///
/// Native code changes an operation only during construction.
class Operation : public ki::KalvexManagedObject {
 public:
  static constexpr kcos::NameRef kHostClassName = "kalvex.bigdata.internal.lazyeval.Operation";

  virtual ~Operation();

  /// Requests the execution tasks of this operation. The meaning of the arguments is agreed between
  /// the planner's host side and the class; both are borrowed.
  virtual matrix::ArrayPtr createExecutionTasks(const kxArray* first, const kxArray* second) = 0;

  /// Runs the operation on values. If the options require random state, the stream of partition 1
  /// replaces the session's stream during the call.
  ///
  /// Result: `plhs[0 .. nlhs - 1]`, owned by the caller; outputs that weren't set are null.
  /// Errors: an internal error if the class has no direct evaluation; those of the class.
  void directEvaluate(int nlhs, kxArray** plhs, int nrhs, const kxArray** prhs);

  /// If the options require random state, wraps the processor factory of a planned task so that
  /// each partition runs with a stream of its own; otherwise returns `processorFactory`.
  matrix::ArrayPtr addGlobalState(matrix::ArrayPtr processorFactory) const;

  std::size_t getNumInputs() const { return numInputs_; }
  void setNumInputs(std::size_t count) { numInputs_ = count; }
  std::size_t getNumOutputs() const { return numOutputs_; }
  void setNumOutputs(std::size_t count) { numOutputs_ = count; }
  bool supportsPreview() const { return supportsPreview_; }
  void setSupportsPreview(bool flag) { supportsPreview_ = flag; }
  bool dependsOnOnlyHead() const { return dependsOnOnlyHead_; }
  void setDependsOnOnlyHead(bool flag) { dependsOnOnlyHead_ = flag; }
  bool supportsDirectEvaluation() const { return supportsDirectEvaluation_; }
  void setSupportsDirectEvaluation(bool flag) { supportsDirectEvaluation_ = flag; }

  /// May be null.
  const ki::PropertyPtr<PartitionedArrayOptions>& getOptions() const { return options_; }
  void setOptions(ki::KalvexManagedPtr<PartitionedArrayOptions> options);

  /// The user's stack when the operation was made.
  const kxArray* getStack() const { return stack_.get(); }
  void setStack(matrix::ArrayPtr stack);

 protected:
  Operation(const ki::KalvexManagedConstructInfo& info, std::size_t numInputs,
            std::size_t numOutputs, bool supportsPreview, bool dependsOnOnlyHead);

  /// Raises an error unless a class overrides it with a direct evaluation.
  virtual void directEvaluateImpl(int nlhs, kxArray** plhs, int nrhs, const kxArray** prhs);

 private:
  std::size_t numInputs_;
  std::size_t numOutputs_;
  bool supportsPreview_;
  bool dependsOnOnlyHead_;
  bool supportsDirectEvaluation_ = false;
  ki::PropertyPtr<PartitionedArrayOptions> options_;
  ki::PropertyArrayPtr stack_;
};

}  // namespace bigdata::lazyeval

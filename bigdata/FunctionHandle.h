#pragma once

#include "ki/KalvexManagedObject.h"
#include "ki/PropertyArrayPtr.h"

namespace bigdata {

/// The function that an operation applies to a user's data, together with the stack of the line
/// that the user wrote, so that a failure is reported where the user can act on it.
class FunctionHandle : public ki::KalvexManagedObject {
 public:
  static constexpr kcos::NameRef kHostClassName = "kalvex.bigdata.internal.FunctionHandle";

  /// For load: the properties are set afterwards.
  explicit FunctionHandle(const ki::KalvexManagedConstructInfo& info);
  /// Reports failures against the current user stack and sets no limit on slices.
  FunctionHandle(const ki::KalvexManagedConstructInfo& info, matrix::ArrayPtr handle);
  FunctionHandle(const ki::KalvexManagedConstructInfo& info, matrix::ArrayPtr handle,
                 matrix::ArrayPtr errorStack, double maxNumSlices);
  /// Takes the handle, then name-value pairs: "MaxNumSlices", "ErrorStack", "CaptureErrorStack".
  /// Errors: "KALVEX:NotEnoughInputs", those of the name-value list,
  ///         "KALVEX:validateattributes:invalidType".
  FunctionHandle(const ki::KalvexManagedConstructInfo& info, int nrhs, const kxArray** prhs);

  /// A function_handle, or any object that the host function "feval" accepts.
  const kxArray* getHandle() const { return handle_.get(); }
  void setHandle(matrix::ArrayPtr value);

  /// The stack that an error of the function is reported against; null or empty for none.
  const kxArray* getErrorStack() const { return errorStack_.get(); }
  void setErrorStack(matrix::ArrayPtr value);

  /// Maximum number of slices per call; infinite for no limit.
  double getMaxNumSlices() const { return maxNumSlices_; }
  void setMaxNumSlices(double value) { maxNumSlices_ = value; }

  /// Calls the function. Errors: those of the function, through `throwAsFunction`.
  void feval(int nlhs, kxArray** plhs, int nrhs, const kxArray** prhs) const;

  /// Raises `error`, a KException, as an error of this function: it becomes a
  /// "kalvex.bigdata.BigDataException" with the submission stack. Returns only if the host's
  /// "updateAndRethrow" does.
  void throwAsFunction(matrix::ArrayPtr error) const;

  /// A new object around the same function. A callable that supports copying is copied.
  ki::KalvexManagedPtr<FunctionHandle> copy() const;
  ki::KalvexManagedPtr<FunctionHandle> copyWithNewHandle(matrix::ArrayPtr handle) const;

 private:
  ki::PropertyArrayPtr handle_;
  ki::PropertyArrayPtr errorStack_;
  double maxNumSlices_;
};

}  // namespace bigdata

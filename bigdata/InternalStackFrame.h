#pragma once

#include "ki/KalvexManagedObject.h"
#include "kx/array.h"

namespace bigdata {

/// The user's stack as opposed to that of internal code: the snapshot that the outermost internal
/// frame took, if one stands, else the live stack.
///
/// Shapes: n-by-1 structure with the fields "file", "name" and "line", innermost first.
matrix::ArrayPtr getUserStack();

/// A span of internal work on a user's behalf. Of nested frames the outermost holds a snapshot of
/// the user's stack in the session; when it goes, the snapshot goes.
class InternalStackFrame : public ki::KalvexManagedObject {
 public:
  static constexpr kcos::NameRef kHostClassName = "kalvex.bigdata.internal.InternalStackFrame";

  /// Takes the live stack, if this is the outermost frame.
  explicit InternalStackFrame(const ki::KalvexManagedConstructInfo& info);
  /// Takes `stack` in its place.
  InternalStackFrame(const ki::KalvexManagedConstructInfo& info, matrix::ArrayPtr stack);
  ~InternalStackFrame();

 private:
  bool isOutermostFrame_;
};

}  // namespace bigdata

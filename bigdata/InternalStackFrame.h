#pragma once

#include "ki/KalvexManagedObject.h"
#include "kx/array.h"

namespace bigdata {

/// The user's stack, as opposed to that of internal code: the snapshot taken by the outermost
/// internal frame, or the live stack if there is no snapshot.
///
/// Shapes: n-by-1 structure with the fields "file", "name" and "line", innermost first.
matrix::ArrayPtr getUserStack();

/// A span of internal work on a user's behalf. The outermost of nested frames holds a snapshot of
/// the user's stack in the session; the snapshot is dropped when that frame ends.
class InternalStackFrame : public ki::KalvexManagedObject {
 public:
  static constexpr kcos::NameRef kHostClassName = "kalvex.bigdata.internal.InternalStackFrame";

  /// Takes the live stack, if this is the outermost frame.
  explicit InternalStackFrame(const ki::KalvexManagedConstructInfo& info);
  /// Takes `stack` instead.
  InternalStackFrame(const ki::KalvexManagedConstructInfo& info, matrix::ArrayPtr stack);
  ~InternalStackFrame();

 private:
  bool isOutermostFrame_;
};

}  // namespace bigdata

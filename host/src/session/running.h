#pragma once

#include "session/SessionState.h"

namespace kv::host {

/// Marks that a body runs, with the rights of a class or of public code (null).
class RunningScope {
 public:
  RunningScope(SessionState& session, const ClassRecord* rights) noexcept
      : session_(session), before_(session.caller) {
    session_.caller = rights;
    session_.calls.enterCall();
  }
  ~RunningScope() {
    session_.caller = before_;
    session_.calls.leaveCall();
  }
  RunningScope(const RunningScope&) = delete;
  RunningScope& operator=(const RunningScope&) = delete;

 private:
  SessionState& session_;
  const ClassRecord* before_;
};

/// Marks that a member of an object runs; does nothing for a null or a deleted object.
class OptionalMemberScope {
 public:
  OptionalMemberScope(Heap& heap, Object* object) noexcept
      : heap_(heap), object_(object != nullptr && !object->isDeleted() ? object : nullptr) {
    if (object_ != nullptr) {
      heap_.enterMember(*object_);
    }
  }
  ~OptionalMemberScope() {
    if (object_ != nullptr) {
      heap_.leaveMember(*object_);
    }
  }
  OptionalMemberScope(const OptionalMemberScope&) = delete;
  OptionalMemberScope& operator=(const OptionalMemberScope&) = delete;

 private:
  Heap& heap_;
  Object* object_;
};

}  // namespace kv::host

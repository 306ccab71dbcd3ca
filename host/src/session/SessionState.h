#pragma once

#include <functional>
#include <memory>
#include <vector>

#include "heap/Heap.h"
#include "kv/host/methodWrappers.h"
#include "kv/host/session.h"
#include "session/CallTable.h"
#include "session/ClassTable.h"
#include "session/SessionStore.h"
#include "session/UserStacks.h"

namespace kv::host {

class ClassRecord;
class Construction;

/// A method that evaluates the object it is called on.
struct GuardedMethod {
  kcos::COSInternedBase className;
  kcos::COSInternedBase name;
};

/// A native method that a wrapper runs in place of.
struct WrappedMethod {
  kcos::COSInternedBase className;
  kcos::COSInternedBase name;
  std::shared_ptr<const MethodWrapper> wrapper;
};

/// What a session holds. Everything in it is touched by one thread at a time.
struct SessionState {
  explicit SessionState(const SessionOptions& options);
  ~SessionState();
  SessionState(const SessionState&) = delete;
  SessionState& operator=(const SessionState&) = delete;

  const SessionOptions options;
  CallTable calls;
  ClassTable classes;
  SessionStore store;
  UserStacks stacks;
  std::vector<Warning> warnings;
  std::vector<LoadValidator> loadValidators;
  std::vector<GuardedMethod> guardedMethods;
  std::vector<WrappedMethod> wrappedMethods;
  Heap heap;

  /// The class whose code runs now: its rights decide about access. Null is public code.
  const ClassRecord* caller = nullptr;
  /// The innermost of the objects that are being constructed.
  Construction* construction = nullptr;
  bool isClosed = false;
};

namespace detail {
extern constinit thread_local SessionState* tCurrentSession;
}

/// The thread's current session, or null.
inline SessionState* currentSession() noexcept { return detail::tCurrentSession; }

/// Result: the session that was current before.
SessionState* setCurrentSession(SessionState* session) noexcept;

/// Deletes all objects while classes and store still serve their destructors, then drops what is
/// stored, and then functions and definitions.
void closeSession(SessionState& session) noexcept;

/// The thread's current session.
/// Errors: "KALVEX:session:Closed" as a native exception if the thread has none.
SessionState& requireSession();

}  // namespace kv::host

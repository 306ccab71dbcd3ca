#pragma once

#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <source_location>
#include <utility>

#include "FunctionHandles.h"
#include "OpenStream.h"
#include "kv/array.h"
#include "kv/host/StackHold.h"
#include "kv/host/session.h"
#include "kv/host/values.h"
#include "kv/runtime/Cancellation.h"
#include "kv/runtime/SessionLease.h"
#include "kv/waiting.h"

namespace kv {

/// A session of the host with core and runtime loaded, and its lock.
struct Session::Impl {
  Impl();

  /// Recursive, because a user's function may record arrays while it is evaluated.
  std::recursive_mutex mutex;
  int depth = 0;                     ///< public calls of the thread that has the lock
  int paused = 0;                    ///< public calls of threads that have released the session
  std::condition_variable_any idle;  ///< no call is paused
  host::Session host;
  // Of the outermost public call; dropped before the session.
  const Where* where = nullptr;
  std::optional<host::CallSite> site;
  host::Value frame;  ///< holds the user's stack
  std::unique_ptr<runtime::SessionLease> lease;
  std::shared_ptr<runtime::InterruptRequests> interrupts;  ///< set once
  FunctionHandles functions;
  OpenStreams streams;
};

/// Rethrows the current exception as one of this layer: errors of the host and the runtime become
/// Error with all their details, an interrupt becomes Interrupted, lack of memory becomes the Error
/// "KALVEX:OutOfMemory", and any other C++ exception the Error "KALVEX:array:Unexpected".
/// Threads: in a catch clause, within the scope of the session.
[[noreturn]] void rethrowAsOurs();

/// Takes the session for this thread; what the front end does while that waits is begun and ended.
void lockSession(Session::Impl& session) noexcept;

/// Raises "KALVEX:session:Closed".
[[noreturn]] void raiseClosed();

/// Runs `body`; all exceptions that leave it are exceptions of this layer.
template <class Body>
auto translated(Body&& body) -> decltype(body()) {
  try {
    return std::forward<Body>(body)();
  } catch (...) {
    rethrowAsOurs();
  }
}

/// The lease of a session with the right to use it: one public call, perhaps within another.
class CallScope {
 public:
  explicit CallScope(Session::Impl& session) : session_(session) {
    lockSession(session);
    ++session_.depth;
  }
  ~CallScope() {
    --session_.depth;
    session_.mutex.unlock();
  }
  CallScope(const CallScope&) = delete;
  CallScope& operator=(const CallScope&) = delete;

 private:
  Session::Impl& session_;
};

/// What may run during a public call.
enum class CallKind : std::uint8_t {
  Any,
  Records,  ///< built-in operations are recorded, and no user's code runs
};

/// The user's line of a public call, and the user's stack: that of the outermost one, which stays
/// as it is until the call ends.
class CallFrame {
 public:
  CallFrame(Session::Impl& session, const Where& where, CallKind kind) : session_(session) {
    if (session.depth > 1) {
      nested_.emplace(where);
    } else {
      session.where = &where;
      session.site.emplace(where);
      if (kind == CallKind::Records) {
        held_.emplace();
      } else {
        session.frame = host::call("kalvex.bigdata.internal.InternalStackFrame");
      }
    }
  }
  ~CallFrame() {
    if (session_.depth == 1) {
      held_.reset();
      session_.frame = nullptr;
      session_.site.reset();
    }
  }
  CallFrame(const CallFrame&) = delete;
  CallFrame& operator=(const CallFrame&) = delete;

 private:
  Session::Impl& session_;
  std::optional<host::CallSite> nested_;
  std::optional<host::StackHold> held_;
};

/// Runs `body` as one public call: the session is leased and current, the user's line is on its
/// stack, and what the call captures as the user's stack doesn't change until the call ends.
template <CallKind kKind = CallKind::Any, class Body>
auto publicCall(Session::Impl& session, const Where& where, Body&& body) {
  const CallScope lease(session);
  if (session.host.isClosed()) {
    raiseClosed();
  }
  const host::Session::Scope scope(session.host);
  return translated([&] {
    const CallFrame frame(session, where, kKind);
    return body();
  });
}

/// Runs `body` as one public call that only records built-in operations: the user's stack costs
/// less.
template <class Body>
auto recordingCall(Session::Impl& session, const Where& where, Body&& body) {
  return publicCall<CallKind::Records>(session, where, std::forward<Body>(body));
}

/// The session of a handle. Errors: "KALVEX:session:Closed" if it is closed.
inline std::shared_ptr<Session::Impl> live(const std::weak_ptr<Session::Impl>& session) {
  auto impl = session.lock();
  if (impl == nullptr) {
    raiseClosed();
  }
  return impl;
}

}  // namespace kv

#pragma once

#include <memory>
#include <mutex>
#include <source_location>
#include <utility>

#include "kv/array.h"
#include "kv/host/session.h"
#include "kv/host/values.h"
#include "kv/runtime/Cancellation.h"

namespace kv {

/// A session of the host with core and runtime loaded, and its lock.
struct Session::Impl {
  Impl();

  /// Recursive, because a user's function may record arrays while it is evaluated.
  std::recursive_mutex mutex;
  host::Session host;
  std::shared_ptr<runtime::InterruptRequests> interrupts;  ///< set once
};

/// Rethrows the current exception as one of this layer: errors of the host and the runtime become
/// Error with all their details, an interrupt becomes Interrupted, lack of memory becomes the Error
/// "KALVEX:OutOfMemory", and any other C++ exception the Error "KALVEX:array:Unexpected".
/// Requires: called in a catch clause, within the scope of the session.
[[noreturn]] void rethrowAsOurs();

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

/// Runs `body` as one public call: the session is leased and current, the user's line is on its
/// stack, and what the call captures as the user's stack doesn't change until the call ends.
template <class Body>
auto publicCall(Session::Impl& session, const Where& where, Body&& body) {
  const std::lock_guard lease(session.mutex);
  if (session.host.isClosed()) {
    raiseClosed();
  }
  const host::Session::Scope scope(session.host);
  return translated([&] {
    const host::CallSite site(where);
    const host::Value frame = host::call("kalvex.bigdata.internal.InternalStackFrame");
    return body();
  });
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

#pragma once

#include <utility>

#include "session/NativeError.h"
#include "session/SessionState.h"
#include "session/edge.h"

namespace kv::host {

inline void refuseClosed(bool isClosed) {
  if (isClosed) {
    throw NativeError("KALVEX:session:Closed", {});
  }
}

/// Runs `body` as a call from outside: in the session, native exceptions leaving as KExceptions.
/// Errors: "KALVEX:session:Closed".
template <class Body>
decltype(auto) inSession(Session& session, Body&& body) {
  const Session::Scope scope(session);
  session.state().heap.safePoint();
  return atEdge(std::forward<Body>(body));
}

}  // namespace kv::host

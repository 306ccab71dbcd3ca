#include "session/SessionState.h"

#include <malloc.h>

#include <cassert>
#include <cstdlib>
#include <cstring>

#include "heap/Pool.h"
#include "kv/host/errors.h"
#include "session/NativeError.h"
#include "session/kException.h"

namespace kv::host {

namespace {

/// KV_STRESS turns stress on for all sessions of the process.
SessionOptions withEnvironment(SessionOptions options) {
  const char* stress = std::getenv("KV_STRESS");
  options.stress =
      options.stress || (stress != nullptr && *stress != '\0' && std::strcmp(stress, "0") != 0);
  return options;
}

/// After a session that used less, searching for memory to return isn't worth its time.
constexpr std::uint64_t kManyObjects = 50'000;
constexpr std::uint64_t kManyBytes = 64 * 1024 * 1024;

void returnMemory(const Heap::Counters& used) noexcept {
  if (used.created >= kManyObjects || used.payloadBytes >= kManyBytes) {
    Pool::trim();
    malloc_trim(0);
  }
}

}  // namespace

namespace detail {
constinit thread_local SessionState* tCurrentSession = nullptr;
}

SessionState::SessionState(const SessionOptions& asked)
    : options(withEnvironment(asked)),
      classes(*this, calls),
      heap(Heap::Options{.stress = options.stress}) {}

SessionState::~SessionState() = default;

SessionState* setCurrentSession(SessionState* session) noexcept {
  Heap::setCurrent(session != nullptr ? &session->heap : nullptr);
  return std::exchange(detail::tCurrentSession, session);
}

SessionState& requireSession() {
  SessionState* session = currentSession();
  if (session == nullptr) {
    throw NativeError("KALVEX:session:Closed", {});
  }
  return *session;
}

void closeSession(SessionState& session) noexcept {
  assert(!session.calls.hasRunningCalls());
  session.isClosed = true;  // callables that are dropped below may ask for the session
  SessionState* before = setCurrentSession(&session);
  session.heap.close();
  session.store.clear();
  session.stacks.clear();
  session.warnings.clear();
  session.loadValidators.clear();
  session.calls.clear();
  session.classes.clear();
  returnMemory(session.heap.counters());
  setCurrentSession(before != nullptr && before->isClosed ? nullptr : before);
}

}  // namespace kv::host

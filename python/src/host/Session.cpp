#include "Session.h"

#include <mutex>
#include <vector>

#include "errors.h"
#include "kv/runtime/runtime.h"
#include "stacks.h"

namespace kv::python {

namespace {

thread_local const SessionPtr* tInnermost = nullptr;

std::mutex openMutex;

std::vector<std::weak_ptr<SharedSession>>& openSessions() {
  static std::vector<std::weak_ptr<SharedSession>> sessions;
  return sessions;
}

void remember(const SessionPtr& session) {
  const std::lock_guard lock(openMutex);
  std::erase_if(openSessions(), [](const auto& each) { return each.expired(); });
  openSessions().push_back(session);
}

/// The sessions are kept alive beyond the lock, because releasing the last owner runs user code.
std::vector<SessionPtr> allOpen() {
  std::vector<SessionPtr> sessions;
  {
    const std::lock_guard lock(openMutex);
    for (const auto& each : openSessions()) {
      sessions.push_back(each.lock());
    }
  }
  std::erase_if(sessions, [](const auto& each) { return each == nullptr || each->isClosed(); });
  return sessions;
}

const SessionPtr& checked(const SessionPtr& session) {
  if (session->isClosed()) {
    raiseInPython("KALVEX:session:Closed");
  }
  if (!session->isHere()) {
    raiseInPython("KALVEX:session:WrongThread");
  }
  return session;
}

}  // namespace

SessionPtr SharedSession::open(bool withRuntime, bool stress) {
  const Entry entry;
  SessionPtr session(new SharedSession(stress));
  session->host_.setStackSource(makeStackSource());
  if (withRuntime) {
    runtime::load(session->host_);
  } else {
    runtime::loadCore(session->host_);
  }
  const host::Session::Scope scope(session->host_);
  session->interrupts_ = runtime::sessionInterrupts();
  remember(session);
  return session;
}

std::vector<SessionPtr> SharedSession::openHere() {
  std::vector<SessionPtr> sessions = allOpen();
  std::erase_if(sessions, [](const SessionPtr& session) { return !session->isHere(); });
  return sessions;
}

void SharedSession::closeAll() {
  if (stopOtherThreads()) {
    nb::set_leak_warnings(false);  // their frames are never cleared
  }
  for (const SessionPtr& session : allOpen()) {
    if (session->uses_ == 0) {
      session->host_.close();
    }
  }
}

void SharedSession::close() {
  const Entry entry;
  if (isClosed()) {
    return;
  }
  if (!isHere()) {
    raiseInPython("KALVEX:session:WrongThread");
  }
  if (uses_ > 0) {
    raiseInPython("KALVEX:session:InUse");
  }
  host_.close();
}

Use::Use(const SessionPtr& session)
    : session_(checked(session)), scope_(session->host()), outer_(tInnermost) {
  tInnermost = &session_;
  ++session_->uses_;
}

Use::~Use() {
  --session_->uses_;
  tInnermost = outer_;
}

const SessionPtr& Use::current() {
  static const SessionPtr none;
  return tInnermost != nullptr ? *tInnermost : none;
}

}  // namespace kv::python

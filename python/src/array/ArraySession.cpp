#include <pthread.h>

#include <algorithm>
#include <atomic>
#include <mutex>
#include <optional>
#include <vector>

#include "array/arrayCalls.h"
#include "array/userStack.h"
#include "kv/error.h"
#include "kv/waiting.h"

namespace kv::python {

namespace {

std::atomic<int> callsInProgress{0};
std::atomic<bool> hasSessions{false};
std::atomic<bool> isForked{false};
std::atomic<bool> isEnding{false};

/// In a child of `fork`, the threads of the sessions are gone, and a lock may be held forever.
[[maybe_unused]] const int kAtFork =
    pthread_atfork(nullptr, nullptr, [] { isForked = hasSessions.load(); });

std::mutex openMutex;

std::vector<std::weak_ptr<ArraySession::Slot>>& openSlots() {
  static std::vector<std::weak_ptr<ArraySession::Slot>> slots;
  return slots;
}

/// The thread that has the session may never return at the end of the interpreter, so the end
/// doesn't wait for those that wait for it.
class WaitingOutside final : public Waiting {
 public:
  WaitingOutside() {
    if (hasInterpreterLock()) {
      unlocked_.emplace();
    }
  }

 private:
  std::optional<Unlock> unlocked_;
  OutsideScope outside_;
};

}  // namespace

void releaseLockWhileWaiting() {
  setWaiting([]() -> std::unique_ptr<Waiting> { return std::make_unique<WaitingOutside>(); });
}

ArrayCall::ArrayCall() {
  if (isForked) {
    raiseError("KALVEX:session:Forked");
  }
  ++callsInProgress;
}

ArrayCall::~ArrayCall() { --callsInProgress; }

BackgroundCall::BackgroundCall() noexcept { ++callsInProgress; }

BackgroundCall::~BackgroundCall() { --callsInProgress; }

bool BackgroundCall::isAbandoned() noexcept { return isEnding || isForked; }

ArraySession::ArraySession()
    : slot_(inArrays(Line::Live, [] {
        hasSessions = true;
        auto session = std::make_shared<kv::Session>();
        setUserStack(*session, makeUserStack());
        return std::make_shared<Slot>(std::move(session));
      })) {
  const std::lock_guard lock(openMutex);
  std::erase_if(openSlots(), [](const auto& each) { return each.expired(); });
  openSlots().push_back(slot_);
}

std::shared_ptr<kv::Session> ArraySession::session() const {
  auto session = slot_->session.load();
  if (session == nullptr) {
    raiseError("KALVEX:session:Closed");
  }
  return session;
}

void ArraySession::close() {
  inArrays(Line::Live, [this] { slot_->session.store(nullptr); });
}

void ArraySession::closeAll() {
  isEnding = true;
  if (callsInProgress > 0 || isForked) {
    return;
  }
  std::vector<std::shared_ptr<Slot>> slots;
  {
    const std::lock_guard lock(openMutex);
    for (const auto& each : openSlots()) {
      slots.push_back(each.lock());
    }
  }
  for (const auto& slot : slots) {
    if (slot != nullptr) {
      slot->session.store(nullptr);
    }
  }
}

}  // namespace kv::python

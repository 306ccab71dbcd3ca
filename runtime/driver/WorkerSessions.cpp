#include "driver/WorkerSessions.h"

#include <utility>

namespace kv::runtime {

std::unique_ptr<host::Session> WorkerSessions::take() {
  const std::lock_guard lock(mutex_);
  if (idle_.empty()) {
    idle_.reserve(idle_.capacity() + 1);  // so that it can be given back
    return open_();
  }
  std::unique_ptr<host::Session> session = std::move(idle_.back());
  idle_.pop_back();
  return session;
}

void WorkerSessions::giveBack(std::unique_ptr<host::Session> session) noexcept {
  const std::lock_guard lock(mutex_);
  idle_.push_back(std::move(session));
}

}  // namespace kv::runtime

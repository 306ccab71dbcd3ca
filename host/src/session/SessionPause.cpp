#include "kv/host/SessionPause.h"

#include <utility>

#include "session/SessionState.h"

namespace kv::host {

SessionPause::SessionPause() noexcept : session_(currentSession()) {
  if (session_ != nullptr) {
    caller_ = std::exchange(session_->caller, nullptr);
    construction_ = std::exchange(session_->construction, nullptr);
    setCurrentSession(nullptr);
  }
}

SessionPause::~SessionPause() {
  if (session_ != nullptr) {
    setCurrentSession(session_);
    session_->construction = construction_;
    session_->caller = caller_;
  }
}

}  // namespace kv::host

#pragma once

#include <memory>

namespace kv::runtime {

/// How a front end lends the session of an evaluation to other threads of the program while units
/// run.
///
/// Threads: used on the thread of the evaluation, which leases the session.
class SessionLease {
 public:
  /// The session is released as long as this lives; its end waits for the session.
  class Released {
   public:
    virtual ~Released();
  };

  virtual ~SessionLease();

  /// False where the session has to be kept: in an evaluation that a user's function starts, which
  /// runs within a call that another evaluation makes.
  virtual bool isReleasable() const noexcept = 0;

  /// Null if it isn't releasable, or if memory is short.
  virtual std::unique_ptr<Released> release() noexcept = 0;
};

/// Sets how evaluations of the current session release it; null for none, which is the default.
/// Lives: `lease` until the session is closed.
void setSessionLease(SessionLease* lease);

}  // namespace kv::runtime

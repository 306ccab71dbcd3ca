#pragma once

#include <nanobind/nanobind.h>

#include <memory>
#include <thread>
#include <vector>

#include "interpreter.h"
#include "kv/host/session.h"
#include "kv/runtime/Cancellation.h"

namespace kv::python {

namespace nb = nanobind;

/// A session of the host as Python's wrappers share it: it lives as long as any of them.
///
/// Threads: all use but dropping and `interrupt` is for the thread that made it, and needs the
/// interpreter's lock.
class SharedSession : public std::enable_shared_from_this<SharedSession> {
 public:
  /// Errors: those of the host.
  static std::shared_ptr<SharedSession> open(bool withRuntime, bool stress);
  /// The open sessions of this thread.
  static std::vector<std::shared_ptr<SharedSession>> openHere();
  /// For the end of the interpreter: stops all other threads and closes the sessions not in use.
  static void closeAll();

  /// Frees every object. Does nothing if the session is closed already.
  /// Errors: "KALVEX:session:InUse" while a call runs in it.
  void close();

  /// Asks the session's evaluation to stop. Threads: any.
  void interrupt() noexcept { interrupts_->add(); }

  host::Session& host() { return host_; }
  bool isHere() const { return thread_ == std::this_thread::get_id(); }
  bool isClosed() const { return host_.isClosed(); }

 private:
  friend class Use;
  explicit SharedSession(bool stress) : host_({.stress = stress}) {}

  host::Session host_;
  std::shared_ptr<runtime::InterruptRequests> interrupts_;
  std::thread::id thread_ = std::this_thread::get_id();
  int uses_ = 0;
};

using SessionPtr = std::shared_ptr<SharedSession>;

/// One use of a session from Python: checks that it may be used here, and makes it current.
///
/// Errors: "KALVEX:session:Closed", "KALVEX:session:WrongThread"; those of Entry.
class Use {
 public:
  explicit Use(const SessionPtr& session);
  ~Use();
  Use(const Use&) = delete;
  Use& operator=(const Use&) = delete;

  /// The session of the innermost use on this thread, or null.
  static const SessionPtr& current();

 private:
  Entry entry_;
  SessionPtr session_;
  host::Session::Scope scope_;
  const SessionPtr* outer_;
};

}  // namespace kv::python

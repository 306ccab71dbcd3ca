#pragma once

#include <memory>
#include <string_view>

#include "kv/host/errors.h"
#include "kv/host/session.h"
#include "kv/runtime/Cancellation.h"

/// What the native core reaches by name: operations, tasks, processors, executors, datastores.
namespace kv::runtime {

/// Enters everything in a session: the core's classes and builtins, the runtime's classes and
/// functions, and their message texts.
///
/// Errors: what a definition raises; "KALVEX:OutOfMemory".
void load(host::Session& session);

/// Enters the native core alone: its classes and builtins. Each class and function that it reaches
/// by name is left to whoever uses the session.
void loadCore(host::Session& session);

/// The release of this runtime, which the function "version" answers.
std::string_view release() noexcept;

/// Asks all evaluations that run in this process to stop within a chunk; if none runs, the next
/// one, of whatever session. An evaluation that ends without having seen the request settles it for
/// those that begin later. Threads: any; may be called from a signal handler.
void requestInterrupt() noexcept;

/// The requests to stop evaluations of the current session, and no other. One that is made while
/// none runs stops the next.
std::shared_ptr<InterruptRequests> sessionInterrupts();

/// What a front end does while an evaluation runs: made at its start and destroyed at its end, on
/// the thread of the evaluation.
class EvaluationWatch {
 public:
  virtual ~EvaluationWatch();
  /// Called once a chunk, on that thread. May throw a host::PassThrough, which ends the evaluation.
  virtual void poll() = 0;
};

/// Sets how watches are made, for all sessions of the process; null: none are made.
/// Threads: before the first evaluation.
void setEvaluationWatch(std::unique_ptr<EvaluationWatch> (*make)()) noexcept;

/// An evaluation that was asked to stop. Passes through calls as itself.
class Interrupted : public host::PassThrough {
 public:
  const char* what() const noexcept override { return "interrupted"; }
};

}  // namespace kv::runtime

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

/// Asks the evaluation that runs in this process, or the next one if none does, to stop within a
/// chunk. An evaluation that ends by itself takes the request with it.
/// Threads: any; may be called from a signal handler.
void requestInterrupt() noexcept;

/// What a front end does while an evaluation runs: made at its start and destroyed at its end, on
/// the thread of the evaluation.
class EvaluationWatch {
 public:
  virtual ~EvaluationWatch();
  /// Called once a chunk. May throw a host::PassThrough, which ends the evaluation.
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

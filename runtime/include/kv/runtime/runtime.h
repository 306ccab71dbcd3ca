#pragma once

#include <cstdint>
#include <memory>
#include <string_view>

#include "kv/host/errors.h"
#include "kv/host/session.h"
#include "kv/runtime/Cancellation.h"

/// The classes that the native core reaches by name: operations, tasks, processors, executors,
/// datastores.
namespace kv::runtime {

class MemoryLedger;

/// Registers everything in a session: the core's classes and builtins, the runtime's classes and
/// functions, and their message texts.
///
/// Errors: those of a definition; "KALVEX:OutOfMemory".
void load(host::Session& session);

/// Registers only the native core: its classes and builtins. The classes and functions that it
/// reaches by name must be defined by the session's user.
void loadCore(host::Session& session);

/// The release of this runtime, which the function "version" returns.
std::string_view release() noexcept;

/// Sets the number of threads that run the units of evaluations of the current session; 0 restores
/// the default: the environment variable KV_THREADS or, without it, as many as the process may use.
/// Errors: "KALVEX:executor:Threads" with the number.
void setThreads(int threads);

/// Sets how many bytes of memory the data of evaluations and of kept values of the current session
/// may use; 0 restores the default: the environment variable KV_MEMORY_LIMIT or, without it, half
/// of the memory that the process may use. Errors: "KALVEX:memory:Limit" with the number if it is
/// below 1 MB.
void setMemoryLimit(std::int64_t bytes);

/// The same for a text with a unit, such as "512MB" or "1.5GiB".
void setMemoryLimit(std::string_view limit);

/// The ledger of the current session, with the limit that holds for an evaluation that begins.
/// Errors: "KALVEX:memory:Limit" for what KV_MEMORY_LIMIT is.
MemoryLedger& ledgerOfEvaluation();

/// Asks all evaluations in progress in this process to stop within a chunk; if none is running, the
/// next one in any session. An evaluation that ends without having seen the request settles it for
/// those that begin later. Threads: any; may be called from a signal handler.
void requestInterrupt() noexcept;

/// The requests to stop evaluations of the current session only. One that is made while none is
/// running stops the next.
std::shared_ptr<InterruptRequests> sessionInterrupts();

/// Sets how watches are created, for all sessions of the process; null for no watches.
/// Threads: before the first evaluation.
void setEvaluationWatch(std::unique_ptr<EvaluationWatch> (*make)()) noexcept;

/// An evaluation was asked to stop. Passes through calls unchanged.
class Interrupted : public host::PassThrough {
 public:
  const char* what() const noexcept override { return "interrupted"; }
};

}  // namespace kv::runtime

#pragma once

#include <arrow/type_fwd.h>

#include <chrono>

#include "column/pool.h"
#include "kv/runtime/Cancellation.h"

namespace kv::runtime {

class Scratch;

using Clock = std::chrono::steady_clock;

/// What an evaluation depends on besides its plan, and a unit besides its stage and its bytes. Code
/// below takes nothing of this from the process.
///
/// It reaches that code in two ways. What decides about a whole call is passed: to the services of
/// units, to units, and to the readers of sources, whose token it is. Memory is needed at any
/// depth, wherever a source, an operator or a conversion of a value makes a column; an argument
/// for it would go through nearly every function. So a ContextScope makes the context that of the
/// thread, and each call of Arrow takes currentPool(), never a default; lint refuses those that
/// don't.
///
/// Lives: the evaluation outlives it.
struct ExecutionContext {
  arrow::MemoryPool* pool;  ///< from which all columns are allocated; outlives them. See pool.h
  const CancellationToken& cancellation;  ///< looked at once a chunk
  Clock::time_point (*now)() = Clock::now;
  Scratch* scratch = nullptr;  ///< where rows go that don't fit in memory; null: nowhere
};

/// The context for which this thread works; null outside of evaluations.
const ExecutionContext* currentContext() noexcept;

/// Makes a context that of this thread, until the scope ends.
///
/// Lives: the context outlives it.
class ContextScope {
 public:
  explicit ContextScope(const ExecutionContext& context) noexcept;
  ~ContextScope();
  ContextScope(const ContextScope&) = delete;
  ContextScope& operator=(const ContextScope&) = delete;

 private:
  PoolScope pool_;
  const ExecutionContext* outer_;
};

}  // namespace kv::runtime

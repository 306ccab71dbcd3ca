#pragma once

#include <arrow/type_fwd.h>

#include <chrono>

#include "kv/runtime/Cancellation.h"

namespace kv::runtime {

class Scratch;

/// What code that runs units depends on besides the units.
///
/// Lives: the evaluation outlives it.
struct ExecutionContext {
  arrow::MemoryPool* pool;  ///< from which all columns are allocated; outlives them. See pool.h
  const CancellationToken& cancellation;  ///< looked at once a chunk
  std::chrono::steady_clock::time_point (*now)() = std::chrono::steady_clock::now;
  Scratch* scratch = nullptr;  ///< where units put what doesn't fit in memory; null: nowhere
};

}  // namespace kv::runtime

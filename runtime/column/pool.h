#pragma once

#include <arrow/type_fwd.h>

#include <memory_resource>

// The memory of columns, and of all else that Arrow makes, comes from one pool: that of the context
// in which a unit runs, or that of a scope which is open; otherwise, by name, Arrow's default pool.
// In an evaluation it is the ledger of the session, which has a limit.
// Every call of Arrow that takes a pool is given this one. It belongs to the thread, so that a
// column can be made at any depth: a ContextScope makes its context's pool the current one.

namespace kv::runtime {

class MemoryLedger;

/// The pool from which this thread allocates.
///
/// Lives: longer than what is allocated from it.
arrow::MemoryPool* currentPool() noexcept;

/// That pool, if it is a ledger; else null.
MemoryLedger* currentLedger() noexcept;

/// The same memory for containers: that ledger, or else the default of the process.
std::pmr::memory_resource* currentResource() noexcept;

/// Makes a pool the current one of this thread, until the scope ends.
class PoolScope {
 public:
  explicit PoolScope(arrow::MemoryPool* pool) noexcept;
  ~PoolScope();
  PoolScope(const PoolScope&) = delete;
  PoolScope& operator=(const PoolScope&) = delete;

 private:
  arrow::MemoryPool* outer_;
};

}  // namespace kv::runtime

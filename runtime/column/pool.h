#pragma once

#include <arrow/type_fwd.h>

// The memory of columns, and of all else that Arrow makes, comes from one pool: that of the context
// in which a unit runs, or that of a scope which is open; otherwise, by name, Arrow's default pool.
// Every call of Arrow that takes a pool is given this one. It belongs to the thread, so that a
// column can be made at any depth: runUnit() makes its context's pool the current one.

namespace kv::runtime {

/// The pool from which this thread allocates.
///
/// Lives: longer than what is allocated from it.
arrow::MemoryPool* currentPool() noexcept;

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

#include "column/pool.h"

#include <arrow/memory_pool.h>

#include <cassert>
#include <utility>

namespace kv::runtime {

namespace {

thread_local arrow::MemoryPool* current = nullptr;

}  // namespace

arrow::MemoryPool* currentPool() noexcept {
  return current != nullptr ? current : arrow::default_memory_pool();
}

PoolScope::PoolScope(arrow::MemoryPool* pool) noexcept : outer_(std::exchange(current, pool)) {
  assert(pool != nullptr);
}

PoolScope::~PoolScope() { current = outer_; }

}  // namespace kv::runtime

#include "column/pool.h"

#include <arrow/memory_pool.h>

#include <cassert>
#include <utility>

#include "column/MemoryLedger.h"

namespace kv::runtime {

namespace {

thread_local arrow::MemoryPool* current = nullptr;

}  // namespace

arrow::MemoryPool* currentPool() noexcept {
  return current != nullptr ? current : arrow::default_memory_pool();
}

MemoryLedger* currentLedger() noexcept { return dynamic_cast<MemoryLedger*>(current); }

std::pmr::memory_resource* currentResource() noexcept {
  MemoryLedger* ledger = currentLedger();
  return ledger != nullptr ? ledger : std::pmr::get_default_resource();
}

PoolScope::PoolScope(arrow::MemoryPool* pool) noexcept : outer_(std::exchange(current, pool)) {
  assert(pool != nullptr);
}

PoolScope::~PoolScope() { current = outer_; }

}  // namespace kv::runtime

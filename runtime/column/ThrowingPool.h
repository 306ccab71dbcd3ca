#pragma once

#include <arrow/memory_pool.h>

#include <cstdint>
#include <string>

namespace kv::runtime {

/// Another memory pool, which throws std::bad_alloc when memory runs out instead of returning a
/// status: Arrow's CSV parser ends the process for that status, but passes on an exception.
///
/// Lives: longer than what is allocated from it; the other pool outlives it.
class ThrowingPool final : public arrow::MemoryPool {
 public:
  explicit ThrowingPool(arrow::MemoryPool& pool) : pool_(pool) {}

  arrow::Status Allocate(std::int64_t size, std::int64_t alignment, std::uint8_t** out) override;
  arrow::Status Reallocate(std::int64_t oldSize, std::int64_t newSize, std::int64_t alignment,
                           std::uint8_t** memory) override;
  void Free(std::uint8_t* buffer, std::int64_t size, std::int64_t alignment) override;
  std::int64_t bytes_allocated() const override { return pool_.bytes_allocated(); }
  std::int64_t total_bytes_allocated() const override { return pool_.total_bytes_allocated(); }
  std::int64_t num_allocations() const override { return pool_.num_allocations(); }
  std::int64_t max_memory() const override { return pool_.max_memory(); }
  std::string backend_name() const override { return pool_.backend_name(); }

 private:
  arrow::MemoryPool& pool_;
};

}  // namespace kv::runtime

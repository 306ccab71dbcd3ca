#include "column/throwingPool.h"

#include <arrow/memory_pool.h>
#include <arrow/status.h>

#include <cstdint>
#include <string>

#include "column/allocate.h"

namespace kv::runtime {

namespace {

class ThrowingPool final : public arrow::MemoryPool {
 public:
  arrow::Status Allocate(std::int64_t size, std::int64_t alignment, std::uint8_t** out) override {
    return checked(pool_.Allocate(size, alignment, out));
  }
  arrow::Status Reallocate(std::int64_t oldSize, std::int64_t newSize, std::int64_t alignment,
                           std::uint8_t** memory) override {
    return checked(pool_.Reallocate(oldSize, newSize, alignment, memory));
  }
  void Free(std::uint8_t* buffer, std::int64_t size, std::int64_t alignment) override {
    pool_.Free(buffer, size, alignment);
  }
  std::int64_t bytes_allocated() const override { return pool_.bytes_allocated(); }
  std::int64_t total_bytes_allocated() const override { return pool_.total_bytes_allocated(); }
  std::int64_t num_allocations() const override { return pool_.num_allocations(); }
  std::int64_t max_memory() const override { return pool_.max_memory(); }
  std::string backend_name() const override { return pool_.backend_name(); }

 private:
  static arrow::Status checked(arrow::Status status) {
    throwIfOutOfMemory(status);
    return status;
  }

  arrow::MemoryPool& pool_ = *arrow::default_memory_pool();
};

}  // namespace

arrow::MemoryPool* throwingPool() {
  static ThrowingPool pool;
  return &pool;
}

}  // namespace kv::runtime

#include "column/ThrowingPool.h"

#include <arrow/status.h>

#include "column/allocate.h"

namespace kv::runtime {

namespace {

arrow::Status checked(arrow::Status status) {
  throwIfOutOfMemory(status);
  return status;
}

}  // namespace

arrow::Status ThrowingPool::Allocate(std::int64_t size, std::int64_t alignment,
                                     std::uint8_t** out) {
  return checked(pool_.Allocate(size, alignment, out));
}

arrow::Status ThrowingPool::Reallocate(std::int64_t oldSize, std::int64_t newSize,
                                       std::int64_t alignment, std::uint8_t** memory) {
  return checked(pool_.Reallocate(oldSize, newSize, alignment, memory));
}

void ThrowingPool::Free(std::uint8_t* buffer, std::int64_t size, std::int64_t alignment) {
  pool_.Free(buffer, size, alignment);
}

}  // namespace kv::runtime

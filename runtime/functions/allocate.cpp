#include "functions/allocate.h"

#include <arrow/result.h>

#include <new>

namespace kv::runtime {

std::shared_ptr<arrow::Buffer> allocateBuffer(std::int64_t bytes) {
  auto buffer = arrow::AllocateBuffer(bytes);
  if (!buffer.ok()) throw std::bad_alloc();
  return std::move(buffer).ValueUnsafe();
}

void throwIfOutOfMemory(const arrow::Status& status) {
  if (status.IsOutOfMemory()) throw std::bad_alloc();
}

}  // namespace kv::runtime

#include "column/allocate.h"

#include <arrow/result.h>

#include <new>
#include <stdexcept>
#include <string>

#include "column/pool.h"
#include "kv/errors/StepError.h"

namespace kv::runtime {

std::shared_ptr<arrow::Buffer> allocateBuffer(std::int64_t bytes) {
  auto buffer = arrow::AllocateBuffer(bytes, currentPool());
  if (!buffer.ok()) {
    throw std::bad_alloc();
  }
  return std::move(buffer).ValueUnsafe();
}

void throwIfOutOfMemory(const arrow::Status& status) {
  if (status.IsOutOfMemory()) {
    throw std::bad_alloc();
  }
}

void checkArrow(const arrow::Status& status) {
  throwIfOutOfMemory(status);
  const bool isTooLarge =
      status.IsCapacityError() ||
      (status.IsInvalid() && status.message().find("overflow") != std::string::npos);
  if (isTooLarge) {
    errors::raiseStep("KALVEX:memory:TextTooLarge");
  }
  if (!status.ok()) {
    throw std::logic_error(status.ToString());
  }
}

}  // namespace kv::runtime

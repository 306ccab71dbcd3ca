// The system provides the pages of a mapping when they are first written. So a mapping of the whole
// size costs nothing at first.

#include "column/ResultBuffer.h"

#include <sys/mman.h>

#include <algorithm>
#include <cassert>
#include <cstring>
#include <new>

#include "column/pool.h"

namespace kv::runtime {

class ResultBuffer::Mapped final : public arrow::MutableBuffer {
 public:
  Mapped(void* memory, std::int64_t bytes)
      : arrow::MutableBuffer(static_cast<std::uint8_t*>(memory), bytes), charge_(currentLedger()) {}
  ~Mapped() override { ::munmap(mutable_data(), static_cast<std::size_t>(size())); }

  void charge(std::int64_t bytes) { charge_.add(bytes); }

 private:
  MemoryCharge charge_;
};

ResultBuffer::ResultBuffer(std::int64_t bytes) {
  const std::int64_t size = std::max<std::int64_t>(bytes, 1);
  void* memory = ::mmap(nullptr, static_cast<std::size_t>(size), PROT_READ | PROT_WRITE,
                        MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
  if (memory == MAP_FAILED) {
    throw std::bad_alloc();
  }
  try {
    buffer_ = std::make_shared<Mapped>(memory, size);
  } catch (...) {
    ::munmap(memory, static_cast<std::size_t>(size));
    throw;
  }
}

void ResultBuffer::append(const void* source, std::int64_t bytes) {
  if (bytes > 0) {
    std::memcpy(next(bytes), source, static_cast<std::size_t>(bytes));
  }
}

std::byte* ResultBuffer::next(std::int64_t bytes) {
  assert(bytes >= 0 && used_ + bytes <= buffer_->size());
  buffer_->charge(bytes);
  auto* begin = reinterpret_cast<std::byte*>(buffer_->mutable_data()) + used_;
  used_ += bytes;
  return begin;
}

std::shared_ptr<arrow::Buffer> ResultBuffer::finish() {
  return arrow::SliceBuffer(std::move(buffer_), 0, used_);
}

}  // namespace kv::runtime

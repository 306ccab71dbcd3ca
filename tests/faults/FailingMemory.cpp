#include "faults/FailingMemory.h"

#include <arrow/memory_pool.h>
#include <arrow/status.h>
#include <link.h>
#include <malloc.h>

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <new>

namespace kv::test {

namespace {

std::atomic<std::int64_t> live{0};
std::atomic<std::int64_t> peak{0};
std::atomic<std::int64_t> total{0};

struct Plan {
  bool isActive = false;
  std::uint64_t asked = 0;
  FaultPlaces failing;
  Shortage shortage = Shortage::Once;
  bool hasFailed = false;
};

constinit thread_local Plan plan;

/// Counts an allocation of our code. Result: whether it must fail.
bool isNextToFail() noexcept {
  if (!plan.isActive) {
    return false;
  }
  ++plan.asked;
  const bool lasts = plan.shortage == Shortage::Lasts && plan.failing.first != 0;
  const bool fails = plan.failing.holds(plan.asked) || (lasts && plan.asked > plan.failing.first);
  plan.hasFailed = plan.hasFailed || fails;
  return fails;
}

struct Range {
  std::uintptr_t begin = 0;
  std::uintptr_t end = 0;
};

/// The address ranges of Arrow's code. Filled before any allocation is made to fail.
class ArrowCode {
 public:
  ArrowCode() { dl_iterate_phdr(addLibrary, this); }

  bool holds(const void* address) const noexcept {
    const auto at = reinterpret_cast<std::uintptr_t>(address);
    for (std::size_t i = 0; i < count_; ++i) {
      if (at >= ranges_[i].begin && at < ranges_[i].end) {
        return true;
      }
    }
    return false;
  }

 private:
  static int addLibrary(dl_phdr_info* info, std::size_t, void* self) {
    auto& code = *static_cast<ArrowCode*>(self);
    const bool isArrow = std::strstr(info->dlpi_name, "libarrow") != nullptr ||
                         std::strstr(info->dlpi_name, "libparquet") != nullptr;
    for (int i = 0; isArrow && i < info->dlpi_phnum; ++i) {
      const auto& header = info->dlpi_phdr[i];
      if (header.p_type == PT_LOAD && (header.p_flags & PF_X) != 0 &&
          code.count_ < code.ranges_.size()) {
        const std::uintptr_t begin = info->dlpi_addr + header.p_vaddr;
        code.ranges_[code.count_++] = {begin, begin + header.p_memsz};
      }
    }
    return 0;
  }

  std::array<Range, 16> ranges_{};
  std::size_t count_ = 0;
};

const ArrowCode& arrowCode() {
  static const ArrowCode code;
  return code;
}

void* counted(void* memory) noexcept {
  const auto bytes = static_cast<std::int64_t>(malloc_usable_size(memory));
  const std::int64_t now = live.fetch_add(bytes, std::memory_order_relaxed) + bytes;
  total.fetch_add(bytes, std::memory_order_relaxed);
  if (now > peak.load(std::memory_order_relaxed)) {  // only one thread allocates while measuring
    peak.store(now, std::memory_order_relaxed);
  }
  return memory;
}

void* take(std::size_t bytes, std::size_t alignment, const void* caller) {
  if (plan.isActive && !arrowCode().holds(caller) && isNextToFail()) {
    throw std::bad_alloc();
  }
  void* memory = nullptr;
  if (alignment <= alignof(std::max_align_t)) {
    memory = std::malloc(bytes == 0 ? 1 : bytes);
  } else if (posix_memalign(&memory, alignment, bytes) != 0) {
    memory = nullptr;
  }
  if (memory == nullptr) {
    throw std::bad_alloc();
  }
  return counted(memory);
}

void give(void* memory) noexcept {
  if (memory != nullptr) {
    live.fetch_sub(static_cast<std::int64_t>(malloc_usable_size(memory)),
                   std::memory_order_relaxed);
    std::free(memory);
  }
}

/// Arrow's pool, with allocations that can fail.
class FailingPool final : public arrow::MemoryPool {
 public:
  arrow::Status Allocate(std::int64_t size, std::int64_t alignment, std::uint8_t** out) override {
    return isNextToFail() ? arrow::Status::OutOfMemory("a test lets memory run out")
                          : pool_->Allocate(size, alignment, out);
  }
  arrow::Status Reallocate(std::int64_t oldSize, std::int64_t newSize, std::int64_t alignment,
                           std::uint8_t** memory) override {
    return isNextToFail() ? arrow::Status::OutOfMemory("a test lets memory run out")
                          : pool_->Reallocate(oldSize, newSize, alignment, memory);
  }
  void Free(std::uint8_t* buffer, std::int64_t size, std::int64_t alignment) override {
    pool_->Free(buffer, size, alignment);
  }
  std::int64_t bytes_allocated() const override { return pool_->bytes_allocated(); }
  std::int64_t total_bytes_allocated() const override { return pool_->total_bytes_allocated(); }
  std::int64_t num_allocations() const override { return pool_->num_allocations(); }
  std::int64_t max_memory() const override { return pool_->max_memory(); }
  std::string backend_name() const override { return pool_->backend_name(); }

 private:
  arrow::MemoryPool* pool_ = arrow::system_memory_pool();
};

}  // namespace

FailingMemory::FailingMemory(FaultPlaces places, Shortage shortage) noexcept {
  arrowCode();
  plan = {true, 0, places, shortage, false};
}

FailingMemory::~FailingMemory() { plan.isActive = false; }

std::uint64_t FailingMemory::asked() const noexcept { return plan.asked; }

bool FailingMemory::hasFailed() const noexcept { return plan.hasFailed; }

CountedMemory::CountedMemory() noexcept : live_(live.load()), total_(kv::test::total.load()) {
  kv::test::peak.store(live_);
}

std::int64_t CountedMemory::peak() const noexcept { return kv::test::peak.load() - live_; }

std::int64_t CountedMemory::total() const noexcept { return kv::test::total.load() - total_; }

std::int64_t liveBytes() noexcept {
  return live.load(std::memory_order_relaxed) + arrow::default_memory_pool()->bytes_allocated();
}

}  // namespace kv::test

/// Replaces Arrow's own function in this program.
arrow::MemoryPool* arrow::default_memory_pool() {
  static kv::test::FailingPool& pool = *new kv::test::FailingPool;
  return &pool;
}

extern "C" {
void* __real_calloc(std::size_t count, std::size_t bytes);   // NOLINT
void* __wrap_calloc(std::size_t count, std::size_t bytes) {  // NOLINT
  return kv::test::isNextToFail() ? nullptr : __real_calloc(count, bytes);
}
}

#define KV_CALLER __builtin_return_address(0)

void* operator new(std::size_t bytes) { return kv::test::take(bytes, 1, KV_CALLER); }
void* operator new[](std::size_t bytes) { return kv::test::take(bytes, 1, KV_CALLER); }
void* operator new(std::size_t bytes, std::align_val_t alignment) {
  return kv::test::take(bytes, static_cast<std::size_t>(alignment), KV_CALLER);
}
void* operator new[](std::size_t bytes, std::align_val_t alignment) {
  return kv::test::take(bytes, static_cast<std::size_t>(alignment), KV_CALLER);
}
void* operator new(std::size_t bytes, const std::nothrow_t&) noexcept {
  try {
    return kv::test::take(bytes, 1, KV_CALLER);
  } catch (const std::bad_alloc&) {
    return nullptr;
  }
}
void* operator new[](std::size_t bytes, const std::nothrow_t&) noexcept {
  try {
    return kv::test::take(bytes, 1, KV_CALLER);
  } catch (const std::bad_alloc&) {
    return nullptr;
  }
}

void operator delete(void* memory) noexcept { kv::test::give(memory); }
void operator delete[](void* memory) noexcept { kv::test::give(memory); }
void operator delete(void* memory, std::size_t) noexcept { kv::test::give(memory); }
void operator delete[](void* memory, std::size_t) noexcept { kv::test::give(memory); }
void operator delete(void* memory, std::align_val_t) noexcept { kv::test::give(memory); }
void operator delete[](void* memory, std::align_val_t) noexcept { kv::test::give(memory); }
void operator delete(void* memory, std::size_t, std::align_val_t) noexcept {
  kv::test::give(memory);
}
void operator delete[](void* memory, std::size_t, std::align_val_t) noexcept {
  kv::test::give(memory);
}
void operator delete(void* memory, const std::nothrow_t&) noexcept { kv::test::give(memory); }
void operator delete[](void* memory, const std::nothrow_t&) noexcept { kv::test::give(memory); }

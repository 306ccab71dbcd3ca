// Bytes are charged before they are allocated, in one atomic step, so that threads together never
// exceed the limit. The ledger lives as long as anything that was allocated from it.

#include "column/MemoryLedger.h"

#include <arrow/status.h>
#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <new>

#include "column/pool.h"

namespace kv::runtime {

namespace {

// Allocators keep what was freed for a while, to use it again. So that a process stays near its
// limit, a thread has them return it after each share of the limit that it has freed.
constexpr std::int64_t kReleasedShare = 16;
constexpr std::int64_t kLeastReleased = std::int64_t{8} << 20;

thread_local std::int64_t freedHere = 0;

}  // namespace

MemoryLedger::Owner MemoryLedger::open(arrow::MemoryPool& memory) {
  return Owner(new MemoryLedger(memory));
}

arrow::Status MemoryLedger::Allocate(std::int64_t size, std::int64_t alignment,
                                     std::uint8_t** out) {
  if (!charge(size)) {
    return arrow::Status::OutOfMemory("the memory limit");
  }
  arrow::Status status = memory_.Allocate(size, alignment, out);
  if (status.ok()) {
    holders_.fetch_add(1);
    allocations_.fetch_add(1);
    total_.fetch_add(size);
  } else {
    discharge(size);
  }
  return status;
}

arrow::Status MemoryLedger::Reallocate(std::int64_t oldSize, std::int64_t newSize,
                                       std::int64_t alignment, std::uint8_t** memory) {
  const std::int64_t more = std::max<std::int64_t>(newSize - oldSize, 0);
  if (!charge(more)) {
    return arrow::Status::OutOfMemory("the memory limit");
  }
  arrow::Status status = memory_.Reallocate(oldSize, newSize, alignment, memory);
  if (status.ok()) {
    discharge(std::max<std::int64_t>(oldSize - newSize, 0));
    allocations_.fetch_add(1);
    total_.fetch_add(more);
  } else {
    discharge(more);
  }
  return status;
}

void MemoryLedger::Free(std::uint8_t* buffer, std::int64_t size, std::int64_t alignment) {
  memory_.Free(buffer, size, alignment);
  discharge(size);
  freedHere += size;
  if (freedHere >= std::max(kLeastReleased, limit() / kReleasedShare)) {
    freedHere = 0;
    memory_.ReleaseUnused();
  }
  releaseHolder();
}

bool MemoryLedger::charge(std::int64_t bytes) noexcept {
  std::int64_t used = used_.load();
  do {
    if (bytes > limit() - used) {
      lastNeed_.store(used + bytes);
      refusals_.fetch_add(1);
      return false;
    }
  } while (!used_.compare_exchange_weak(used, used + bytes));
  const std::int64_t now = used + bytes;
  std::int64_t peak = peak_.load();
  while (peak < now && !peak_.compare_exchange_weak(peak, now)) {
  }
  return true;
}

void MemoryLedger::releaseHolder() noexcept {
  if (holders_.fetch_sub(1) == 1) {
    delete this;
  }
}

void* MemoryLedger::do_allocate(std::size_t bytes, std::size_t alignment) {
  std::uint8_t* memory = nullptr;
  const auto least = static_cast<std::size_t>(arrow::kDefaultBufferAlignment);
  if (!Allocate(static_cast<std::int64_t>(bytes),
                static_cast<std::int64_t>(std::max(alignment, least)), &memory)
           .ok()) {
    throw std::bad_alloc();
  }
  return memory;
}

void MemoryLedger::do_deallocate(void* memory, std::size_t bytes, std::size_t alignment) {
  const auto least = static_cast<std::size_t>(arrow::kDefaultBufferAlignment);
  Free(static_cast<std::uint8_t*>(memory), static_cast<std::int64_t>(bytes),
       static_cast<std::int64_t>(std::max(alignment, least)));
}

MemoryCharge::MemoryCharge(MemoryLedger* ledger) noexcept : ledger_(ledger) {
  if (ledger_ != nullptr) {
    ledger_->holders_.fetch_add(1);
  }
}

MemoryCharge::~MemoryCharge() {
  if (ledger_ != nullptr) {
    ledger_->discharge(bytes_);
    ledger_->releaseHolder();
  }
}

void MemoryCharge::add(std::int64_t bytes) {
  if (ledger_ == nullptr) {
    return;
  }
  if (!ledger_->charge(bytes)) {
    throw std::bad_alloc();
  }
  bytes_ += bytes;
}

RefusalWatch::RefusalWatch() noexcept
    : ledger_(currentLedger()), before_(ledger_ != nullptr ? ledger_->refusals() : 0) {}

std::optional<Refusal> RefusalWatch::refusal() const noexcept {
  return ledger_ != nullptr && ledger_->refusals() != before_
             ? std::optional(ledger_->lastRefusal())
             : std::nullopt;
}

std::string shownBytes(std::int64_t bytes) {
  constexpr double kThousand = 1000;
  const double megabytes = static_cast<double>(bytes) / (kThousand * kThousand);
  if (megabytes < 1) {
    return fmt::format("{} bytes", bytes);
  }
  if (megabytes < kThousand) {
    return fmt::format("{:.1f} MB", std::ceil(megabytes * 10) / 10);
  }
  const bool isGigabytes = megabytes < kThousand * kThousand;
  const double number = megabytes / (isGigabytes ? kThousand : kThousand * kThousand);
  return fmt::format("{:.2f} {}", std::ceil(number * 100) / 100, isGigabytes ? "GB" : "TB");
}

}  // namespace kv::runtime

#pragma once

#include <arrow/memory_pool.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <memory_resource>
#include <optional>
#include <string>

namespace kv::runtime {

/// An allocation that a memory limit didn't allow.
struct Refusal {
  std::int64_t needBytes = 0;  ///< with what was in use
  std::int64_t limitBytes = 0;
};

/// The memory of one session: a pool that counts every buffer, and refuses one that would exceed
/// the limit. What is allocated through it at a time is never more than the limit. As a resource it
/// is the same pool for containers.
///
/// Owner: its owners, and every buffer that was allocated from it: a value that is kept may outlive
///        its session. With the last of them it is gone.
/// Threads: any.
class MemoryLedger final : public arrow::MemoryPool, public std::pmr::memory_resource {
 public:
  struct Release {
    void operator()(MemoryLedger* ledger) const noexcept { ledger->releaseHolder(); }
  };
  using Owner = std::unique_ptr<MemoryLedger, Release>;

  /// A ledger over `memory`, without a limit.
  /// Lives: `memory` outlives it.
  static Owner open(arrow::MemoryPool& memory);

  /// One more owner, of another session that uses this memory.
  Owner share() noexcept {
    holders_.fetch_add(1);
    return Owner(this);
  }

  /// May be less than what is in use: nothing can be allocated then until enough is free.
  void setLimit(std::int64_t bytes) noexcept { limit_.store(bytes); }
  std::int64_t limit() const noexcept { return limit_.load(); }

  /// The number of allocations that the limit didn't allow.
  std::int64_t refusals() const noexcept { return refusals_.load(); }

  /// The last of them; nothing that has a meaning if there was none.
  Refusal lastRefusal() const noexcept { return {lastNeed_.load(), limit()}; }

  /// Errors: Status::OutOfMemory for what would exceed the limit, and as for the other pool.
  arrow::Status Allocate(std::int64_t size, std::int64_t alignment, std::uint8_t** out) override;
  arrow::Status Reallocate(std::int64_t oldSize, std::int64_t newSize, std::int64_t alignment,
                           std::uint8_t** memory) override;
  void Free(std::uint8_t* buffer, std::int64_t size, std::int64_t alignment) override;
  void ReleaseUnused() override { memory_.ReleaseUnused(); }
  std::int64_t bytes_allocated() const override { return used_.load(); }
  std::int64_t max_memory() const override { return peak_.load(); }
  std::int64_t total_bytes_allocated() const override { return total_.load(); }
  std::int64_t num_allocations() const override { return allocations_.load(); }
  std::string backend_name() const override { return memory_.backend_name(); }

 private:
  friend class MemoryCharge;

  void* do_allocate(std::size_t bytes, std::size_t alignment) override;
  void do_deallocate(void* memory, std::size_t bytes, std::size_t alignment) override;
  bool do_is_equal(const std::pmr::memory_resource& other) const noexcept override {
    return this == &other;
  }

  explicit MemoryLedger(arrow::MemoryPool& memory) : memory_(memory) {}
  ~MemoryLedger() override = default;

  bool charge(std::int64_t bytes) noexcept;
  void discharge(std::int64_t bytes) noexcept { used_.fetch_sub(bytes); }
  void releaseHolder() noexcept;

  arrow::MemoryPool& memory_;
  std::atomic<std::int64_t> limit_{INT64_MAX};
  std::atomic<std::int64_t> used_{0};
  std::atomic<std::int64_t> peak_{0};
  std::atomic<std::int64_t> total_{0};
  std::atomic<std::int64_t> allocations_{0};
  std::atomic<std::int64_t> refusals_{0};
  std::atomic<std::int64_t> lastNeed_{0};
  std::atomic<std::int64_t> holders_{1};  ///< the owners, and the buffers
};

/// Bytes that are used by other means than a pool, and count as if they were allocated from a
/// ledger.
class MemoryCharge {
 public:
  /// `ledger`: null for none.
  explicit MemoryCharge(MemoryLedger* ledger) noexcept;
  ~MemoryCharge();
  MemoryCharge(const MemoryCharge&) = delete;
  MemoryCharge& operator=(const MemoryCharge&) = delete;

  /// Errors: std::bad_alloc if the limit doesn't allow that many more.
  void add(std::int64_t bytes);

 private:
  MemoryLedger* ledger_;
  std::int64_t bytes_ = 0;
};

/// Notes what the ledger of this thread, if it has one, refuses from now on.
class RefusalWatch {
 public:
  RefusalWatch() noexcept;

  /// The last refusal since the watch began, in any thread; empty if there was none.
  std::optional<Refusal> refusal() const noexcept;

 private:
  const MemoryLedger* ledger_;
  std::int64_t before_;
};

/// A number of bytes as messages show it, rounded up: "512 bytes", "64.0 MB",
/// "12.64 GB", "8.00 TB".
std::string shownBytes(std::int64_t bytes);

}  // namespace kv::runtime

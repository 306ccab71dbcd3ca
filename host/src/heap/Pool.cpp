#include "heap/Pool.h"

#include <memory>
#include <mutex>
#include <new>
#include <utility>

#include "heap/pages.h"

namespace kv::host {

constinit thread_local Pool::Cache* Pool::cache_ = nullptr;

/// What threads share: batches of blocks, all caches, and the caches of threads that ended.
struct Pool::Depot {
  /// A process that needs little takes no huge page.
  static constexpr std::size_t kFirstBytes = 256 * 1024;

  /// Memory that was never used.
  /// Errors: std::bad_alloc.
  std::byte* takeFresh(std::size_t bytes);

  std::mutex mutex;
  std::byte* fresh = nullptr;
  std::size_t freshBytes = 0;
  bool takesHugePages = false;
  std::array<Block*, kLargest / kStep> batches{};
  Cache* idle = nullptr;
  Cache* all = nullptr;
  std::array<std::atomic<std::int64_t>, kCountedKinds> strayCounts{};
};

/// Hands a thread's cache on when the thread ends.
struct Pool::CacheGuard {
  ~CacheGuard() {
    if (Cache* cache = std::exchange(cache_, nullptr)) {
      const std::lock_guard lock(depot().mutex);
      cache->nextIdle = std::exchange(depot().idle, cache);
    }
  }
};

Pool::Depot& Pool::depot() noexcept {
  static Depot& process = *new Depot;  // never destroyed: values may be dropped at exit
  return process;
}

Pool::Cache& Pool::cache() {
  if (cache_ == nullptr) {
    {
      const std::lock_guard lock(depot().mutex);
      if (Cache* idle = depot().idle) {
        depot().idle = idle->nextIdle;
        cache_ = idle;
      } else {
        cache_ = new Cache;
        cache_->nextOfAll = std::exchange(depot().all, cache_);
      }
    }
    static thread_local CacheGuard guard;
    static_cast<void>(guard);
  }
  return *cache_;
}

void* Pool::allocateLarge(std::size_t bytes) {
  return ::operator new(bytes, std::align_val_t(kStep));
}

void* Pool::allocateSlowly(std::size_t bytes) {
  List& list = cache().lists[listOf(bytes)];
  if (list.first == nullptr) {
    refill(list, listOf(bytes));
  }
  Block* block = list.first;
  list.first = block->next;
  --list.size;
  return block;
}

void Pool::freeSlowly(void* memory, std::size_t bytes) noexcept {
  if (memory == nullptr) {
    return;
  }
  if (bytes > kLargest || kBypass) {
    ::operator delete(memory, std::align_val_t(kStep));
    return;
  }
  // A thread without a cache gives the block back as a batch of one.
  const std::lock_guard lock(depot().mutex);
  Block*& batches = depot().batches[listOf(bytes)];
  batches = new (memory) Block{nullptr, batches, 1};
}

std::byte* Pool::Depot::takeFresh(std::size_t bytes) {
  if (freshBytes < bytes) {
    fresh = static_cast<std::byte*>(
        takesHugePages ? newHugePage() : ::operator new(kFirstBytes, std::align_val_t(kStep)));
    freshBytes = std::exchange(takesHugePages, true) ? kHugePageBytes : kFirstBytes;
  }
  freshBytes -= bytes;
  return std::exchange(fresh, fresh + bytes);
}

void Pool::refill(List& list, std::size_t index) {
  const std::lock_guard lock(depot().mutex);
  if (Block* batch = depot().batches[index]) {
    depot().batches[index] = batch->nextBatch;
    list = {batch, batch->batchSize};
    return;
  }
  const std::size_t blockBytes = (index + 1) * kStep;
  std::byte* fresh = depot().takeFresh(kBatch * blockBytes);
  for (std::size_t at = kBatch; at-- > 0;) {
    list.first = new (fresh + at * blockBytes) Block{list.first};
  }
  list.size = kBatch;
}

void Pool::giveBatch(List& list, std::size_t index) noexcept {
  Block* batch = list.first;
  Block* last = batch;
  for (std::size_t i = 1; i < kBatch; ++i) {
    last = last->next;
  }
  list.first = last->next;
  list.size -= kBatch;
  last->next = nullptr;
  batch->batchSize = kBatch;
  const std::lock_guard lock(depot().mutex);
  batch->nextBatch = std::exchange(depot().batches[index], batch);
}

void Pool::countSlowly(Counted kind, std::int64_t change) noexcept {
  depot().strayCounts[static_cast<std::size_t>(kind)].fetch_add(change, std::memory_order_relaxed);
}

std::int64_t Pool::total(Counted kind) noexcept {
  const auto at = static_cast<std::size_t>(kind);
  const std::lock_guard lock(depot().mutex);
  std::int64_t sum = depot().strayCounts[at].load(std::memory_order_relaxed);
  for (const Cache* cache = depot().all; cache != nullptr; cache = cache->nextOfAll) {
    sum += cache->counts[at].load(std::memory_order_relaxed);
  }
  return sum;
}

}  // namespace kv::host

// An allocator for blocks of few sizes that are made and freed by the million, often on different
// threads. Each thread has a free list for each size and takes no lock; lists that grow too long,
// or run empty, exchange batches with a depot of the process. Memory comes from the system in
// aligned regions, so that a block finds its region from its address, and a region without used
// blocks can be returned.

#include "heap/Pool.h"

#include <cassert>
#include <memory>
#include <mutex>
#include <new>
#include <utility>

#include "heap/pages.h"

namespace kv::host {

constinit thread_local Pool::Cache* Pool::cache_ = nullptr;

/// Memory that blocks are taken from, with this at its start; its address is a multiple of its
/// size.
struct Pool::Region {
  static constexpr std::size_t kBytes = kHugePageBytes;

  static Region& of(const void* block) noexcept {
    return *reinterpret_cast<Region*>(reinterpret_cast<std::uintptr_t>(block) & ~(kBytes - 1));
  }
  std::byte* end() noexcept { return reinterpret_cast<std::byte*>(this) + kBytes; }
  bool isFree() const noexcept { return freeBlocks == cutBlocks; }

  Region* next = nullptr;
  std::size_t cutBlocks = 0;
  std::size_t freeBlocks = 0;  ///< counted by `trim`
};

/// What threads share: batches of blocks, all caches, and the caches of threads that ended.
struct Pool::Depot {
  /// Less free memory than this isn't returned.
  static constexpr std::size_t kLeastTrimBytes = 8 * 1024 * 1024;

  /// Memory for a batch that was never used.
  /// Errors: std::bad_alloc.
  std::byte* takeFresh(std::size_t blockBytes);
  /// Takes over the first `count` blocks of a list, which `last` ends.
  void put(Block* first, Block* last, std::size_t count, std::size_t index) noexcept;
  /// Takes over all blocks of a list.
  void empty(List& list, std::size_t index) noexcept;
  /// Counts the free blocks of each region. Takes those of free regions out of the batches.
  void sortOutFreeBlocks() noexcept;
  /// Requires: what `sortOutFreeBlocks` counted.
  void unmapFreeRegions() noexcept;

  std::mutex mutex;
  Region* regions = nullptr;
  std::byte* fresh = nullptr;
  std::byte* freshEnd = nullptr;
  std::array<Block*, kLargest / kStep> batches{};
  std::size_t freeBytes = 0;
  std::size_t bytesPutSinceTrim = 0;
  Cache* idle = nullptr;
  Cache* all = nullptr;
  std::array<std::atomic<std::int64_t>, kCountedKinds> strayCounts{};
};

/// Passes a thread's cache on when the thread ends.
struct Pool::CacheGuard {
  ~CacheGuard() {
    if (Cache* cache = std::exchange(cache_, nullptr)) {
      const std::lock_guard lock(depot().mutex);
      cache->nextIdle = std::exchange(depot().idle, cache);
    }
  }
};

Pool::Depot& Pool::depot() noexcept {
  // Never destroyed: values may be dropped at exit. Not allocated: an array may be counted first.
  alignas(Depot) static std::byte place[sizeof(Depot)];
  static Depot& process = *new (place) Depot;
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
  // A thread without a cache returns the block as a batch of one.
  auto* const block = new (memory) Block;
  const std::lock_guard lock(depot().mutex);
  depot().put(block, block, 1, listOf(bytes));
}

std::byte* Pool::Depot::takeFresh(std::size_t blockBytes) {
  const std::size_t bytes = kBatch * blockBytes;
  if (static_cast<std::size_t>(freshEnd - fresh) < bytes) {
    // A process that needs little takes no huge page.
    auto* const region = new (newPages(regions != nullptr)) Region{.next = regions};
    regions = region;
    fresh = reinterpret_cast<std::byte*>(region) + kStep;
    freshEnd = region->end();
  }
  Region::of(fresh).cutBlocks += kBatch;
  return std::exchange(fresh, fresh + bytes);
}

void Pool::Depot::put(Block* first, Block* last, std::size_t count, std::size_t index) noexcept {
  last->next = nullptr;
  first->batchSize = count;
  first->nextBatch = std::exchange(batches[index], first);
  const std::size_t bytes = count * (index + 1) * kStep;
  freeBytes += bytes;
  bytesPutSinceTrim += bytes;
}

void Pool::refill(List& list, std::size_t index) {
  const std::size_t blockBytes = (index + 1) * kStep;
  Depot& from = depot();
  const std::lock_guard lock(from.mutex);
  if (Block* batch = from.batches[index]) {
    from.batches[index] = batch->nextBatch;
    from.freeBytes -= batch->batchSize * blockBytes;
    list = {batch, batch->batchSize};
    return;
  }
  std::byte* fresh = from.takeFresh(blockBytes);
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
  const std::lock_guard lock(depot().mutex);
  depot().put(batch, last, kBatch, index);
}

void Pool::Depot::empty(List& list, std::size_t index) noexcept {
  if (list.first == nullptr) {
    return;
  }
  Block* last = list.first;
  while (last->next != nullptr) {
    last = last->next;
  }
  put(list.first, last, list.size, index);
  list = {};
}

template <class Visit>
void Pool::forEachBlock(Block* batch, Visit visit) noexcept {
  std::array<Block*, 16> chains{};  // interleaved, so that their cache misses overlap
  for (bool isDone = false; !isDone;) {
    isDone = true;
    for (Block*& block : chains) {
      if (block == nullptr && batch != nullptr) {
        block = std::exchange(batch, batch->nextBatch);
      }
      if (block != nullptr) {
        Block* const current = std::exchange(block, block->next);
        __builtin_prefetch(block);
        visit(current);
        isDone = false;
      }
    }
  }
}

void Pool::Depot::sortOutFreeBlocks() noexcept {
  for (Block* first : batches) {
    forEachBlock(first, [](Block* block) { ++Region::of(block).freeBlocks; });
  }
  freeBytes = 0;
  for (std::size_t index = 0; index < batches.size(); ++index) {
    List kept;
    forEachBlock(std::exchange(batches[index], nullptr), [&](Block* block) {
      if (Region::of(block).isFree()) {
        return;
      }
      kept = {new (block) Block{kept.first}, kept.size + 1};
      if (kept.size == kBatch) {
        empty(kept, index);
      }
    });
    empty(kept, index);
  }
}

void Pool::Depot::unmapFreeRegions() noexcept {
  for (Region** link = &regions; *link != nullptr;) {
    Region* const region = *link;
    assert(region->freeBlocks <= region->cutBlocks);
    if (!region->isFree()) {
      region->freeBlocks = 0;
      link = &region->next;
      continue;
    }
    *link = region->next;
    if (region->end() == freshEnd) {
      fresh = freshEnd = nullptr;
    }
    deletePages(region);
  }
}

void Pool::trim() noexcept {
  Depot& all = depot();
  const std::lock_guard lock(all.mutex);
  if (all.freeBytes < Depot::kLeastTrimBytes || 2 * all.bytesPutSinceTrim < all.freeBytes) {
    return;
  }
  const auto empty = [&all](Cache* cache) {
    for (std::size_t index = 0; index < cache->lists.size(); ++index) {
      all.empty(cache->lists[index], index);
    }
  };
  if (cache_ != nullptr) {
    empty(cache_);
  }
  for (Cache* idle = all.idle; idle != nullptr; idle = idle->nextIdle) {
    empty(idle);
  }
  all.sortOutFreeBlocks();
  all.unmapFreeRegions();
  all.bytesPutSinceTrim = 0;
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

#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>

namespace kv::host {

/// What the process counts; see `Ledger`.
enum class Counted : std::size_t { Objects, Arrays, Payloads, PayloadBytes };
inline constexpr std::size_t kCountedKinds = 4;

/// Memory for the many small objects of the host: blocks of 64 to 256 bytes, aligned to 64, from
/// lists of the calling thread; larger ones come from `operator new`.
///
/// 1. A block may be freed by any thread. Lists that grow too long go to a depot of the process,
///    from which other threads refill.
/// 2. Memory is mapped in regions. `trim` returns those without a block in use to the system; the
///    rest is kept for reuse.
/// 3. A build with the address sanitizer takes each block from `operator new`, so that a use after
///    free is detected; so does one with KV_POOL_BYPASS, so that a test can make any block fail.
///
/// Threads: any.
class Pool {
 public:
  static constexpr std::size_t kStep = 64;
  static constexpr std::size_t kLargest = 256;

  /// Errors: std::bad_alloc.
  static void* allocate(std::size_t bytes) {
    if (bytes > kLargest || kBypass) {
      return allocateLarge(bytes);
    }
    if (Cache* cache = cache_) {
      List& list = cache->lists[listOf(bytes)];
      if (Block* block = list.first) {
        list.first = block->next;
        __builtin_prefetch(list.first, 1);  // mostly freed long ago, and needed soon
        --list.size;
        return block;
      }
    }
    return allocateSlowly(bytes);
  }

  /// `bytes` as given to `allocate`. Null does nothing.
  static void free(void* memory, std::size_t bytes) noexcept {
    Cache* cache = cache_;
    if (bytes > kLargest || kBypass || memory == nullptr || cache == nullptr) {
      freeSlowly(memory, bytes);
      return;
    }
    List& list = cache->lists[listOf(bytes)];
    list.first = new (memory) Block{list.first};
    if (++list.size > 2 * kBatch) {
      giveBatch(list, listOf(bytes));
    }
  }

  /// Adds to a count of the process. Cost: no locked instruction.
  static void count(Counted kind, std::int64_t change) noexcept {
    if (Cache* cache = cache_) {
      std::atomic<std::int64_t>& sum = cache->counts[static_cast<std::size_t>(kind)];
      sum.store(sum.load(std::memory_order_relaxed) + change, std::memory_order_relaxed);
    } else {
      countSlowly(kind, change);
    }
  }

  /// The sum over all threads.
  static std::int64_t total(Counted kind) noexcept;

  /// Returns free regions to the system, if much is free and much of that was freed since the last
  /// time. Blocks that other threads keep for themselves count as used.
  /// Cost: O(1) for each block freed since the last time.
  static void trim() noexcept;

 private:
  struct Block {
    Block* next;
    // Of the first block of a batch in the depot:
    Block* nextBatch = nullptr;
    std::size_t batchSize = 0;
  };
  struct List {
    Block* first = nullptr;
    std::size_t size = 0;
  };
  /// The memory of a thread; after its end, the next new thread takes it over.
  struct Cache {
    std::array<List, kLargest / kStep> lists;
    std::array<std::atomic<std::int64_t>, kCountedKinds> counts{};
    Cache* nextIdle = nullptr;
    Cache* nextOfAll = nullptr;
  };
  struct Region;
  struct Depot;
  struct CacheGuard;

  static constexpr std::size_t kBatch = 128;
#if defined(__SANITIZE_ADDRESS__) || defined(KV_POOL_BYPASS)
  static constexpr bool kBypass = true;
#else
  static constexpr bool kBypass = false;
#endif

  static constexpr std::size_t listOf(std::size_t bytes) noexcept {
    return bytes == 0 ? 0 : (bytes - 1) / kStep;
  }
  template <class Visit>
  static void forEachBlock(Block* batch, Visit visit) noexcept;
  static Depot& depot() noexcept;
  static Cache& cache();
  static void* allocateLarge(std::size_t bytes);
  static void* allocateSlowly(std::size_t bytes);
  static void freeSlowly(void* memory, std::size_t bytes) noexcept;
  static void refill(List& list, std::size_t index);
  static void giveBatch(List& list, std::size_t index) noexcept;
  static void countSlowly(Counted kind, std::int64_t change) noexcept;

  static constinit thread_local Cache* cache_;
};

/// Base of types whose single objects live in the pool.
struct Pooled {
  static void* operator new(std::size_t bytes) { return Pool::allocate(bytes); }
  static void operator delete(void* memory, std::size_t bytes) noexcept {
    Pool::free(memory, bytes);
  }
};

}  // namespace kv::host

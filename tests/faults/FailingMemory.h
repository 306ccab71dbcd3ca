#pragma once

#include <cstdint>

#include "faults/FaultPlaces.h"

/// Memory that runs out on demand. All requests of this program to `operator new`, `calloc` and
/// Arrow's memory pool are counted as one sequence of allocations, and chosen ones fail.
///
/// The program replaces `operator new` and Arrow's default pool and links with `--wrap=calloc`; its
/// host takes each block from `operator new`. Requests of Arrow's own code to `operator new` never
/// fail: that code isn't ours.
namespace kv::test {

enum class Shortage {
  Once,   ///< only the chosen allocation fails
  Lasts,  ///< the chosen one and all after it fail
};

constexpr const char* nameOf(Shortage shortage) {
  return shortage == Shortage::Once ? " failed" : " and all after it failed";
}

/// How work ends that ran out of memory; see Outcome.
inline constexpr const char* kOutOfMemory = "error KALVEX:OutOfMemory";

/// Makes allocations of this thread fail during its lifetime.
class FailingMemory {
 public:
  /// `places`: which allocations from now on fail.
  FailingMemory(FaultPlaces places, Shortage shortage) noexcept;
  ~FailingMemory();
  FailingMemory(const FailingMemory&) = delete;
  FailingMemory& operator=(const FailingMemory&) = delete;

  /// Allocations of this thread since construction, failed ones included.
  std::uint64_t asked() const noexcept;
  /// True if an allocation has failed.
  bool hasFailed() const noexcept;
};

/// Counts the memory that `operator new` returns, from construction on.
class CountedMemory {
 public:
  CountedMemory() noexcept;
  /// The maximum growth of allocated memory, in bytes.
  std::int64_t peak() const noexcept;
  /// All bytes requested, a measure of the work done.
  std::int64_t total() const noexcept;

 private:
  std::int64_t live_;
  std::int64_t total_;
};

/// Bytes allocated now, by all threads and all code.
std::int64_t liveBytes() noexcept;

}  // namespace kv::test

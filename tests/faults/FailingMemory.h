#pragma once

#include <cstdint>

#include "faults/FaultPlaces.h"

/// Memory that runs out on demand: all that this program asks of `operator new`, of `calloc` and of
/// Arrow's memory pool counts as one sequence of allocations, and chosen ones fail.
///
/// The program replaces `operator new` and Arrow's default pool and links with `--wrap=calloc`; its
/// host takes each block from `operator new`. What Arrow's own code asks of `operator new` never
/// fails: that code isn't ours.
namespace kv::test {

enum class Shortage {
  Once,   ///< the chosen allocation fails, and no other
  Lasts,  ///< the chosen one fails, and all after it
};

constexpr const char* nameOf(Shortage shortage) {
  return shortage == Shortage::Once ? " failed" : " and all after it failed";
}

/// How work ends that had too little memory; see Outcome.
inline constexpr const char* kOutOfMemory = "error KALVEX:OutOfMemory";

/// Lets allocations of this thread fail for the span of its life.
class FailingMemory {
 public:
  /// `places`: which allocations from now on fail.
  FailingMemory(FaultPlaces places, Shortage shortage) noexcept;
  ~FailingMemory();
  FailingMemory(const FailingMemory&) = delete;
  FailingMemory& operator=(const FailingMemory&) = delete;

  /// Allocations of this thread since its birth, failed ones included.
  std::uint64_t asked() const noexcept;
  /// True if an allocation has failed.
  bool hasFailed() const noexcept;
};

/// Counts what `operator new` gives from its birth on.
class CountedMemory {
 public:
  CountedMemory() noexcept;
  /// By how many bytes what is held grew at most.
  std::int64_t peak() const noexcept;
  /// All bytes that were asked for, a measure of the work done with them.
  std::int64_t total() const noexcept;

 private:
  std::int64_t live_;
  std::int64_t total_;
};

/// Bytes that are allocated now, by all threads and all code.
std::int64_t liveBytes() noexcept;

}  // namespace kv::test

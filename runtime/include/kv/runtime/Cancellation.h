#pragma once

#include <atomic>
#include <exception>

namespace kv::runtime {

/// Ends an evaluation that was asked to stop.
class Cancelled : public std::exception {
 public:
  const char* what() const noexcept override { return "The evaluation was cancelled."; }
};

/// A flag by which an evaluation is asked to stop; looked at once a chunk.
///
/// Threads: `cancel` may be called from any thread and from a signal handler.
class CancellationToken {
 public:
  void cancel() noexcept { cancelled_.store(true, std::memory_order_relaxed); }
  void reset() noexcept { cancelled_.store(false, std::memory_order_relaxed); }
  bool isCancelled() const noexcept { return cancelled_.load(std::memory_order_relaxed); }

  /// Errors: Cancelled when it is.
  void throwIfCancelled() const {
    if (isCancelled()) throw Cancelled();
  }

 private:
  std::atomic<bool> cancelled_{false};
};

}  // namespace kv::runtime

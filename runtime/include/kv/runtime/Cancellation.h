#pragma once

#include <atomic>
#include <exception>

namespace kv::runtime {

/// Ends an evaluation that was asked to stop.
class Cancelled : public std::exception {
 public:
  const char* what() const noexcept override { return "The evaluation was cancelled."; }
};

class EvaluationWatch;

/// A flag by which an evaluation is asked to stop; looked at once a chunk.
///
/// Threads: `cancel` may be called from any thread and from a signal handler.
class CancellationToken {
 public:
  CancellationToken() = default;
  /// A token that stops when `outer` does, and polls a watch (null: none) whenever it is looked at.
  /// Lives: no longer than both.
  CancellationToken(const CancellationToken& outer, EvaluationWatch* watch)
      : outer_(&outer), watch_(watch) {}

  void cancel() noexcept { cancelled_.store(true, std::memory_order_relaxed); }
  void reset() noexcept { cancelled_.store(false, std::memory_order_relaxed); }
  bool isCancelled() const noexcept {
    return cancelled_.load(std::memory_order_relaxed) ||
           (outer_ != nullptr && outer_->isCancelled());
  }

  /// Errors: Cancelled when it is; what the watch throws.
  void throwIfCancelled() const;

 private:
  std::atomic<bool> cancelled_{false};
  const CancellationToken* outer_ = nullptr;
  EvaluationWatch* watch_ = nullptr;
};

}  // namespace kv::runtime

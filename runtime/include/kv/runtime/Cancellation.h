#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <thread>

#include "kv/errors/PassThrough.h"

namespace kv::runtime {

/// Ends an evaluation that was asked to stop.
class Cancelled : public errors::PassThrough {
 public:
  const char* what() const noexcept override { return "The evaluation was cancelled."; }
};

/// A front end's hook into an evaluation: created at its start and destroyed at its end, on the
/// thread of the evaluation.
class EvaluationWatch {
 public:
  virtual ~EvaluationWatch();
  /// Called once per chunk, on that thread. May throw a PassThrough, which ends the evaluation.
  virtual void poll() = 0;
};

/// The requests to stop evaluations of the process, or of one session. A request applies to the
/// evaluations in progress, and to one that begins before the first of them has ended; if none is
/// running, to the next.
///
/// Threads: `add` may be called from any thread and from a signal handler; it takes no lock.
class InterruptRequests {
 public:
  void add() noexcept { made_.fetch_add(1); }

 private:
  friend class CancellationToken;
  static_assert(std::atomic<std::uint64_t>::is_always_lock_free);

  std::uint64_t made() const noexcept { return made_.load(); }
  /// The number of requests that ended an evaluation, or that evaluations have outlived.
  std::uint64_t settled() const noexcept { return settled_.load(); }
  void settle() noexcept;

  std::atomic<std::uint64_t> made_{0};
  std::atomic<std::uint64_t> settled_{0};
};

/// Signals an evaluation to stop; checked once per chunk. Each evaluation has its own token, and
/// its end doesn't affect requests that other evaluations have yet to see.
///
/// Threads: may be checked on any thread; only the thread that made it polls the watch.
class CancellationToken {
 public:
  /// A token for reading outside of evaluations.
  CancellationToken() = default;
  /// The token of an evaluation that begins: it stops at requests of its process and its session,
  /// and polls a watch (null for none). If a unit's function starts it, it stops with that unit
  /// (see CancellationScope). Its end settles the requests made so far. Lives: no longer than all
  /// three.
  CancellationToken(InterruptRequests& process, InterruptRequests& session, EvaluationWatch* watch);
  /// The token of a part of `whole`: it stops with the whole, or when it is cancelled on its own,
  /// and polls no watch.
  explicit CancellationToken(const CancellationToken* whole) noexcept : whole_(whole) {}
  ~CancellationToken();
  CancellationToken(const CancellationToken&) = delete;
  CancellationToken& operator=(const CancellationToken&) = delete;

  void cancel() noexcept { cancelled_.store(true, std::memory_order_relaxed); }
  bool isCancelled() const noexcept;

  /// Errors: Cancelled if a stop was requested; whatever the watch throws.
  void throwIfCancelled() const;

  /// The watch of the evaluation of whose whole this is a part; null if it has none.
  EvaluationWatch* watch() const noexcept;

 private:
  /// Requests, and how many of them were settled when the evaluation began.
  struct Heard {
    InterruptRequests* requests = nullptr;
    std::uint64_t settled = 0;
  };

  std::atomic<bool> cancelled_{false};
  std::array<Heard, 2> heard_{};
  const CancellationToken* whole_ = nullptr;
  EvaluationWatch* watch_ = nullptr;
  std::thread::id owner_ = std::this_thread::get_id();
};

/// Makes the token of a unit that of its thread as long as this lives: evaluations that begin on
/// the thread stop with the unit.
class CancellationScope {
 public:
  explicit CancellationScope(const CancellationToken& unit) noexcept;
  ~CancellationScope();
  CancellationScope(const CancellationScope&) = delete;
  CancellationScope& operator=(const CancellationScope&) = delete;

  /// The token of this thread's unit; null outside of units, and on the thread of an evaluation.
  static const CancellationToken* current() noexcept;

 private:
  const CancellationToken* outer_;
};

}  // namespace kv::runtime

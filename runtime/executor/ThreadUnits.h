#pragma once

#include <condition_variable>
#include <cstddef>
#include <deque>
#include <exception>
#include <iterator>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "executor/Lane.h"
#include "executor/UnitService.h"

namespace kv::runtime {

/// Runs units on threads of its own, which begin the units in the order in which they were
/// submitted. Users' functions are called on the client thread, inside `next`.
///
/// Lives: within one stage of an evaluation. Its end stops the units in progress within a chunk.
/// Threads: its functions are called on the client thread.
class ThreadUnits final : public UnitService {
 public:
  /// `threads`: at least 1; fewer are used where the system refuses more.
  explicit ThreadUnits(int threads) : numThreads_(threads) {}
  ~ThreadUnits() override;

  /// Errors: those of UnitService; std::system_error if no thread can be started.
  void begin(const Stage& stage, UserFunctions& functions,
             const ExecutionContext& context) override;
  void submit(std::string unit) override;

  /// Errors: those of UnitService; Cancelled, or what the watch or a function throws past errors.
  std::optional<UnitResult> next() override;
  std::int64_t window() const override { return kUnitsPerThread * std::ssize(threads_); }
  void cancel() override;

 private:
  static constexpr std::int64_t kUnitsPerThread = 4;

  /// A result, or the exception that ended the unit.
  struct Finished {
    std::optional<UnitResult> result{};
    std::exception_ptr thrown{};
  };

  void startThreads();
  void work() noexcept;
  std::optional<std::string> takeUnit();
  Finished run(const std::string& unit);
  std::optional<Finished> waitForResult();

  int numThreads_;
  const Stage* stage_ = nullptr;
  const ExecutionContext* context_ = nullptr;
  std::optional<StageRows> rows_;
  std::optional<Lane> lane_;
  std::optional<CancellationToken> stop_;

  std::mutex mutex_;
  std::condition_variable forWorkers_;  ///< there are units, or it is the end
  std::condition_variable forClient_;   ///< there are results or calls of functions
  std::deque<std::string> units_;
  std::vector<Finished> results_;  ///< has room for all units in progress
  std::size_t numPending_ = 0;     ///< units that were submitted and haven't been returned
  bool isEnding_ = false;
  std::vector<std::jthread> threads_;
};

}  // namespace kv::runtime

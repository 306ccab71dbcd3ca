#pragma once

#include <condition_variable>
#include <cstddef>
#include <deque>
#include <exception>
#include <iterator>
#include <limits>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "executor/Lane.h"
#include "executor/UnitService.h"

namespace kv::runtime {

/// Runs units on threads of its own, which begin the units in the order in which they were
/// submitted. Users' functions are called on the client thread, inside `next`, free ones on the
/// workers.
///
/// Lives: within one stage of an evaluation. Its end stops the units in progress within a chunk.
class ThreadUnits final : public UnitService {
 public:
  /// `threads`: at least 1; fewer are used where the system refuses more.
  /// Errors: std::system_error if no thread can be started.
  explicit ThreadUnits(int threads);
  ~ThreadUnits() override;

  void begin(const StageScope& stage) override;
  void submit(std::string unit) override;

  /// Errors: those of UnitService; Cancelled, or what the watch or a function throws past errors.
  std::optional<UnitOutcome> next() override;
  std::int64_t threads() const override { return std::ssize(threads_); }
  std::int64_t window() const override { return kUnitsPerThread * std::ssize(threads_); }
  void cancelAfter(std::int64_t partition) override;

 private:
  static constexpr std::int64_t kUnitsPerThread = 4;

  struct Submitted {
    std::int64_t partition;
    std::string unit;
  };

  /// A unit in progress; on the stack of its worker.
  struct Running {
    std::int64_t partition;
    CancellationToken stop;
  };

  /// A result, or the exception that ended the unit.
  struct Finished {
    std::int64_t partition;
    std::optional<UnitResult> result{};
    std::exception_ptr thrown{};
  };

  ThreadUnits() = default;
  void startThreads(int threads);
  void work() noexcept;
  std::optional<Submitted> takeUnit();
  void begin(Running& unit);
  Finished run(const Submitted& submitted, const Running& running,
               std::unique_ptr<UserFunctions>& free);
  void finish(const Running& unit, Finished finished);
  std::optional<Finished> waitForResult();

  std::optional<BegunStage> stage_;  ///< doesn't change while units run
  std::optional<Lane> lane_;

  std::mutex mutex_;
  std::condition_variable forWorkers_;  ///< there are units, or it is the end
  std::condition_variable forClient_;   ///< there are results or calls of functions
  std::deque<Submitted> units_;
  std::vector<Running*> running_;
  std::vector<Finished> results_;  ///< has room for all units in progress
  std::size_t numPending_ = 0;     ///< units that were submitted and haven't been returned
  std::int64_t lastPartition_ = std::numeric_limits<std::int64_t>::max();  ///< that isn't cancelled
  bool isEnding_ = false;
  std::vector<std::jthread> threads_;
};

}  // namespace kv::runtime

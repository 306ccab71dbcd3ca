// Two queues under one lock: units go to the workers, results come back. The client thread waits in
// `next` for a result, a call of a user's function, or its next look at interrupts. Which worker
// ran a unit, and when, can't be seen in its result; OrderedMerge restores the order of partitions.

#include "executor/ThreadUnits.h"

#include <pthread.h>

#include <cassert>
#include <chrono>
#include <csignal>
#include <system_error>
#include <utility>

#include "engine/Unit.h"
#include "executor/WorkerFunctions.h"

namespace kv::runtime {

namespace {

/// How often the client thread looks at interrupts while it waits.
constexpr std::chrono::milliseconds kPollInterval(50);

/// Blocks all signals in this thread and those that it starts: handlers run elsewhere.
class BlockedSignals {
 public:
  BlockedSignals() noexcept {
    sigset_t all;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &before_);
  }
  ~BlockedSignals() { pthread_sigmask(SIG_SETMASK, &before_, nullptr); }
  BlockedSignals(const BlockedSignals&) = delete;
  BlockedSignals& operator=(const BlockedSignals&) = delete;

 private:
  sigset_t before_{};
};

}  // namespace

ThreadUnits::ThreadUnits(int threads) : ThreadUnits() {
  assert(threads >= 1);
  startThreads(threads);  // if it throws, the destructor ends those that it started
}

ThreadUnits::~ThreadUnits() {
  if (stage_) {
    cancelAfter(-1);
  }
  {
    const std::lock_guard lock(mutex_);
    isEnding_ = true;
  }
  forWorkers_.notify_all();
  // A free function that runs may need the session, too, before it can end.
  SessionLease* lease = stage_ ? stage_->scope.lease : nullptr;
  const auto released = lease != nullptr ? lease->release() : nullptr;
  threads_.clear();
}

void ThreadUnits::begin(const StageScope& stage) {
  assert(!stage_);
  stage_.emplace(stage);
  lane_.emplace(stage.functions, [this] {
    const std::lock_guard lock(mutex_);  // so that the client is waiting, or has yet to look
    forClient_.notify_one();
  });
}

void ThreadUnits::startThreads(int threads) {
  const BlockedSignals blocked;
  threads_.reserve(static_cast<std::size_t>(threads));
  running_.reserve(static_cast<std::size_t>(threads));
  while (std::ssize(threads_) < threads) {
    try {
      threads_.emplace_back([this] { work(); });
    } catch (const std::system_error&) {
      if (threads_.empty()) {
        throw;
      }
      return;
    }
  }
}

void ThreadUnits::submit(std::string unit) {
  const std::int64_t partition = Unit::fromBytes(unit).partition;
  {
    const std::lock_guard lock(mutex_);
    results_.reserve(numPending_ + 1);
    units_.push_back({partition, std::move(unit)});
    ++numPending_;
  }
  forWorkers_.notify_one();
}

std::optional<UnitOutcome> ThreadUnits::next() {
  const StageScope& scope = stage_->scope;
  while (true) {
    scope.context.cancellation.throwIfCancelled();
    while (lane_->serve()) {
      scope.context.cancellation.throwIfCancelled();
    }
    std::optional<Finished> finished = waitForResult();
    if (finished) {
      scope.functions.endPartition(finished->partition);
    }
    if (finished && finished->thrown != nullptr) {
      std::rethrow_exception(std::move(finished->thrown));
    }
    if (finished) {
      return std::move(finished->result);
    }
    const std::lock_guard lock(mutex_);
    if (numPending_ == 0) {
      return std::nullopt;
    }
  }
}

/// None if there is something else to do, or after a while. The session is released while it waits.
std::optional<ThreadUnits::Finished> ThreadUnits::waitForResult() {
  const auto hasWork = [&] { return !results_.empty() || numPending_ == 0 || lane_->hasCalls(); };
  std::unique_lock lock(mutex_);
  if (!hasWork()) {
    lock.unlock();
    SessionLease* lease = stage_->scope.lease;
    const auto released = lease != nullptr ? lease->release() : nullptr;
    lock.lock();
    forClient_.wait_for(lock, kPollInterval, hasWork);
    lock.unlock();  // before the end of `released`, which may wait
  }
  if (!lock.owns_lock()) {
    lock.lock();
  }
  if (results_.empty()) {
    return std::nullopt;
  }
  Finished finished = std::move(results_.back());
  results_.pop_back();
  --numPending_;
  return finished;
}

void ThreadUnits::cancelAfter(std::int64_t partition) {
  const auto isAfter = [partition](const auto& unit) { return unit.partition > partition; };
  {
    const std::lock_guard lock(mutex_);
    lastPartition_ = partition;
    numPending_ -= std::erase_if(units_, isAfter) + std::erase_if(results_, isAfter);
    for (Running* unit : running_) {
      if (isAfter(*unit)) {
        unit->stop.cancel();
      }
    }
  }
  lane_->cancelAfter(partition);
}

void ThreadUnits::work() noexcept {
  std::unique_ptr<UserFunctions> free;
  while (const std::optional<Submitted> submitted = takeUnit()) {
    Running running{submitted->partition, CancellationToken(&stage_->scope.context.cancellation)};
    begin(running);
    finish(running, run(*submitted, running, free));
  }
}

std::optional<ThreadUnits::Submitted> ThreadUnits::takeUnit() {
  std::unique_lock lock(mutex_);
  forWorkers_.wait(lock, [&] { return isEnding_ || !units_.empty(); });
  if (isEnding_) {
    return std::nullopt;
  }
  Submitted unit = std::move(units_.front());
  units_.pop_front();
  return unit;
}

void ThreadUnits::begin(Running& unit) {
  const std::lock_guard lock(mutex_);
  running_.push_back(&unit);  // has room
  if (unit.partition > lastPartition_) {
    unit.stop.cancel();
  }
}

ThreadUnits::Finished ThreadUnits::run(const Submitted& submitted, const Running& running,
                                       std::unique_ptr<UserFunctions>& free) {
  Finished finished{submitted.partition};
  const CancellationScope stop(running.stop);
  try {
    const StageScope& scope = stage_->scope;
    LaneFunctions lane(*lane_, submitted.partition);
    WorkerFunctions functions(lane, scope.freeFunctions, free);
    const ExecutionContext context{scope.context.pool, running.stop, scope.context.now,
                                   scope.context.scratch};
    finished.result = runUnit(scope.stage, stage_->rows, submitted.unit, functions, context);
  } catch (...) {
    finished.thrown = std::current_exception();
  }
  return finished;
}

void ThreadUnits::finish(const Running& unit, Finished finished) {
  {
    const std::lock_guard lock(mutex_);
    std::erase(running_, &unit);
    if (unit.partition > lastPartition_) {
      --numPending_;
    } else {
      results_.push_back(std::move(finished));  // has room
    }
  }
  forClient_.notify_one();
}

}  // namespace kv::runtime

#include "executor/ThreadUnits.h"

#include <pthread.h>

#include <cassert>
#include <chrono>
#include <csignal>
#include <system_error>
#include <utility>

#include "engine/Unit.h"

// Two queues under one lock: units go to the workers, results come back. The client thread waits in
// `next` for a result, a call of a user's function, or its next look at interrupts. Which worker
// ran a unit, and when, can't be seen in its result; OrderedMerge restores the order of partitions.

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

ThreadUnits::~ThreadUnits() {
  if (stop_) {
    stop_->cancel();
    lane_->close();
  }
  {
    const std::lock_guard lock(mutex_);
    isEnding_ = true;
  }
  forWorkers_.notify_all();
}

void ThreadUnits::begin(const Stage& stage, UserFunctions& functions,
                        const ExecutionContext& context) {
  stage_ = &stage;
  context_ = &context;
  rows_.emplace(stage);
  stop_.emplace(&context.cancellation);
  lane_.emplace(functions, [this] {
    const std::lock_guard lock(mutex_);  // so that the client is waiting, or has yet to look
    forClient_.notify_one();
  });
  startThreads();
}

void ThreadUnits::startThreads() {
  const BlockedSignals blocked;
  threads_.reserve(static_cast<std::size_t>(numThreads_));
  while (std::ssize(threads_) < numThreads_) {
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
  assert(stage_ != nullptr);
  {
    const std::lock_guard lock(mutex_);
    results_.reserve(numPending_ + 1);
    units_.push_back(std::move(unit));
    ++numPending_;
  }
  forWorkers_.notify_one();
}

std::optional<UnitResult> ThreadUnits::next() {
  while (true) {
    context_->cancellation.throwIfCancelled();
    while (lane_->serve()) {
      context_->cancellation.throwIfCancelled();
    }
    std::optional<Finished> finished = waitForResult();
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

/// None if there is something else to do, or after a while.
std::optional<ThreadUnits::Finished> ThreadUnits::waitForResult() {
  std::unique_lock lock(mutex_);
  forClient_.wait_for(lock, kPollInterval,
                      [&] { return !results_.empty() || numPending_ == 0 || lane_->hasCalls(); });
  if (results_.empty()) {
    return std::nullopt;
  }
  Finished finished = std::move(results_.back());
  results_.pop_back();
  --numPending_;
  return finished;
}

void ThreadUnits::cancel() {
  const std::lock_guard lock(mutex_);
  numPending_ -= units_.size();
  units_.clear();
}

void ThreadUnits::work() noexcept {
  while (const std::optional<std::string> unit = takeUnit()) {
    Finished finished = run(*unit);
    {
      const std::lock_guard lock(mutex_);
      results_.push_back(std::move(finished));  // has room
    }
    forClient_.notify_one();
  }
}

std::optional<std::string> ThreadUnits::takeUnit() {
  std::unique_lock lock(mutex_);
  forWorkers_.wait(lock, [&] { return isEnding_ || !units_.empty(); });
  if (isEnding_) {
    return std::nullopt;
  }
  std::string unit = std::move(units_.front());
  units_.pop_front();
  return unit;
}

ThreadUnits::Finished ThreadUnits::run(const std::string& unit) {
  Finished finished;
  try {
    LaneFunctions functions(*lane_, Unit::fromBytes(unit).partition);
    const ExecutionContext context{context_->pool, *stop_, context_->now};
    finished.result = runUnit(*stage_, *rows_, unit, functions, context);
  } catch (...) {
    finished.thrown = std::current_exception();
  }
  return finished;
}

}  // namespace kv::runtime

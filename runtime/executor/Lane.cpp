// A waiting call is on the stack of its worker, which leaves only when the client has finished it
// or cancelled it. Both happen on the client thread, so a call never runs after its worker has
// left.

#include "executor/Lane.h"

#include <algorithm>
#include <utility>

#include "kv/runtime/Cancellation.h"

namespace kv::runtime {

void Lane::run(std::int64_t partition, const std::function<void(UserFunctions&)>& call) {
  Waiting waiting{partition, call};
  {
    const std::lock_guard lock(mutex_);
    if (partition > lastPartition_) {
      throw Cancelled();
    }
    waiting_.push_back(&waiting);
  }
  onCall_();
  std::unique_lock lock(mutex_);
  done_.wait(lock, [&] { return waiting.isDone; });
  if (waiting.thrown != nullptr) {
    std::rethrow_exception(std::move(waiting.thrown));
  }
}

bool Lane::hasCalls() const {
  const std::lock_guard lock(mutex_);
  return !waiting_.empty();
}

bool Lane::serve() {
  Waiting* waiting = takeLowest();
  if (waiting == nullptr) {
    return false;
  }
  try {
    waiting->call(functions_);
  } catch (const errors::PassThrough&) {
    finish(*waiting, std::make_exception_ptr(Cancelled()));
    throw;
  } catch (...) {
    finish(*waiting, std::current_exception());
    return true;
  }
  finish(*waiting, nullptr);
  return true;
}

void Lane::cancelAfter(std::int64_t partition) noexcept {
  const std::lock_guard lock(mutex_);
  lastPartition_ = partition;
  std::erase_if(waiting_, [partition](Waiting* waiting) {
    if (waiting->partition <= partition) {
      return false;
    }
    waiting->thrown = std::make_exception_ptr(Cancelled());
    waiting->isDone = true;
    return true;
  });
  done_.notify_all();
}

Lane::Waiting* Lane::takeLowest() {
  const std::lock_guard lock(mutex_);
  const auto lowest = std::ranges::min_element(waiting_, {}, &Waiting::partition);
  if (lowest == waiting_.end()) {
    return nullptr;
  }
  Waiting* taken = *lowest;
  waiting_.erase(lowest);
  return taken;
}

void Lane::finish(Waiting& call, std::exception_ptr thrown) noexcept {
  const std::lock_guard lock(mutex_);
  call.thrown = std::move(thrown);
  call.isDone = true;
  done_.notify_all();
}

std::vector<Chunk> LaneFunctions::call(std::size_t step, const Chunk& rows,
                                       std::span<const FunctionInput> inputs, OutputTypes& types) {
  std::vector<Chunk> arrays;
  lane_.run(partition_,
            [&](UserFunctions& client) { arrays = client.call(step, rows, inputs, types); });
  return arrays;
}

PartitionResults LaneFunctions::callPartition(std::size_t step, const Chunk& rows,
                                              std::span<const FunctionInput> inputs,
                                              const PartitionPlace& place, bool returnsUnused,
                                              OutputTypes& types) {
  PartitionResults results;
  lane_.run(partition_, [&](UserFunctions& client) {
    results = client.callPartition(step, rows, inputs, place, returnsUnused, types);
  });
  return results;
}

ReducedValues LaneFunctions::reduce(std::size_t step, std::span<const Chunk> partials) {
  ReducedValues reduced;
  lane_.run(partition_, [&](UserFunctions& client) { reduced = client.reduce(step, partials); });
  return reduced;
}

std::vector<Chunk> LaneFunctions::partialsOf(std::size_t step, const ReducedValues& reduced) {
  std::vector<Chunk> arrays;
  lane_.run(partition_, [&](UserFunctions& client) { arrays = client.partialsOf(step, reduced); });
  return arrays;
}

}  // namespace kv::runtime

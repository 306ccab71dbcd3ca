#pragma once

#include <condition_variable>
#include <cstdint>
#include <exception>
#include <functional>
#include <limits>
#include <mutex>
#include <span>
#include <vector>

#include "operator/UserFunctions.h"

namespace kv::runtime {

/// Where workers hand the calls of users' functions to the client thread, the one that evaluates:
/// functions run there, one at a time, in the user's own session.
///
/// Threads: workers call; the client serves and cancels. Lives: longer than its callers.
class Lane {
 public:
  /// `functions`: called on the client thread. `onCall`: wakes the client; called on workers.
  Lane(UserFunctions& functions, std::function<void()> onCall)
      : functions_(functions), onCall_(std::move(onCall)) {}

  /// Runs `call` on the client thread and waits for it.
  ///
  /// Errors: those of the call, as they came; Cancelled once calls for the partition are cancelled.
  void run(std::int64_t partition, const std::function<void(UserFunctions&)>& call);

  /// Client: true if a call is waiting.
  bool hasCalls() const;

  /// Client: runs the waiting call of the lowest partition, whose result is needed first.
  ///
  /// Result: false if none was waiting.
  /// Errors: a PassThrough that the function throws, for instance an interrupt.
  bool serve();

  /// Client: ends the waiting calls for partitions after `partition` and refuses later ones.
  void cancelAfter(std::int64_t partition) noexcept;

 private:
  struct Waiting {
    std::int64_t partition;
    const std::function<void(UserFunctions&)>& call;
    std::exception_ptr thrown{};
    bool isDone = false;
  };

  Waiting* takeLowest();
  void finish(Waiting& call, std::exception_ptr thrown) noexcept;

  UserFunctions& functions_;
  std::function<void()> onCall_;
  mutable std::mutex mutex_;
  std::condition_variable done_;
  std::vector<Waiting*> waiting_;
  std::int64_t lastPartition_ = std::numeric_limits<std::int64_t>::max();  ///< that isn't cancelled
};

/// Users' functions as the worker that runs a unit sees them.
class LaneFunctions final : public UserFunctions {
 public:
  LaneFunctions(Lane& lane, std::int64_t partition) : lane_(lane), partition_(partition) {}

  std::vector<Chunk> call(std::size_t step, const Chunk& rows,
                          std::span<const FunctionInput> inputs, OutputTypes& types) override;
  PartitionResults callPartition(std::size_t step, const Chunk& rows,
                                 std::span<const FunctionInput> inputs, const PartitionPlace& place,
                                 bool returnsUnused, OutputTypes& types) override;
  ReducedValues reduce(std::size_t step, std::span<const Chunk> partials) override;
  std::vector<Chunk> partialsOf(std::size_t step, const ReducedValues& reduced) override;

 private:
  Lane& lane_;
  std::int64_t partition_;
};

}  // namespace kv::runtime

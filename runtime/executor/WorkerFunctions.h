#pragma once

#include <memory>
#include <span>
#include <vector>

#include "executor/FreeFunctions.h"
#include "operator/UserFunctions.h"

namespace kv::runtime {

/// Users' functions as the worker that runs a unit sees them: free ones are called here, all
/// others, and the second functions of reductions, in the lane.
class WorkerFunctions final : public UserFunctions {
 public:
  /// `opened`: the worker's free functions, null before the first call.
  WorkerFunctions(UserFunctions& lane, const FreeFunctions* free,
                  std::unique_ptr<UserFunctions>& opened)
      : lane_(lane), free_(free), opened_(opened) {}

  std::vector<Chunk> call(std::size_t step, const Chunk& rows,
                          std::span<const FunctionInput> inputs, OutputTypes& types) override {
    return functionsOf(step).call(step, rows, inputs, types);
  }
  PartitionResults callPartition(std::size_t step, const Chunk& rows,
                                 std::span<const FunctionInput> inputs, const PartitionPlace& place,
                                 bool returnsUnused, OutputTypes& types) override {
    return functionsOf(step).callPartition(step, rows, inputs, place, returnsUnused, types);
  }
  ReducedValues reduce(std::size_t step, std::span<const Chunk> partials) override {
    return lane_.reduce(step, partials);
  }
  std::vector<Chunk> partialsOf(std::size_t step, const ReducedValues& reduced) override {
    return lane_.partialsOf(step, reduced);
  }

 private:
  /// Those that call the function of a step.
  UserFunctions& functionsOf(std::size_t step) {
    if (free_ == nullptr || !free_->isFree(step)) {
      return lane_;
    }
    if (opened_ == nullptr) {
      opened_ = free_->open();
    }
    return *opened_;
  }

  UserFunctions& lane_;
  const FreeFunctions* free_;
  std::unique_ptr<UserFunctions>& opened_;
};

}  // namespace kv::runtime

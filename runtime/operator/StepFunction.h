#pragma once

#include <optional>
#include <span>
#include <vector>

#include "operator/scopes.h"

namespace kv::runtime {

/// The user's function of a step, as one run of the step calls it. It keeps the rule for no rows: a
/// function isn't called on none, unless no row reaches it in the whole array; then once, so that
/// its results have their types.
///
/// Lives: not longer than what the scope refers to.
class StepFunction {
 public:
  explicit StepFunction(const StepScope& scope) : scope_(scope) {}

  /// Calls the function. `rows` says which rows of the partition the inputs are.
  /// Errors: those of UserFunctions::call.
  std::vector<Chunk> call(const Chunk& rows, std::span<const FunctionInput> inputs);

  /// The same for a function of partitions.
  PartitionResults callPartition(const Chunk& rows, std::span<const FunctionInput> inputs,
                                 const PartitionPlace& place, bool returnsUnused);

  /// What the function's results are where no row has come; none if it must be called.
  std::optional<std::vector<Chunk>> resultsWithoutRows() const;

  /// The rows of the last call since `forget`; null if there was none.
  const GivenRows* rowsAtHand() const { return given_ ? &*given_ : nullptr; }
  void forget() { given_.reset(); }

 private:
  StepScope scope_;
  std::optional<GivenRows> given_;
};

}  // namespace kv::runtime

#pragma once

#include <cstdint>
#include <map>
#include <span>
#include <utility>
#include <vector>

#include "driver/assembleStage.h"
#include "driver/slicedCalls.h"
#include "operator/UserFunctions.h"

namespace kv::runtime {

/// Runs users' functions in the current session, through the functions of the operation's factory.
///
/// Lives: the stage outlives it.
class SessionFunctions final : public UserFunctions {
 public:
  explicit SessionFunctions(const AssembledStage& stage) : stage_(stage) {}

  std::vector<Chunk> call(std::size_t step, const Chunk& rows,
                          std::span<const FunctionInput> inputs, OutputTypes& types) override;

  PartitionResults callPartition(std::size_t step, const Chunk& rows,
                                 std::span<const FunctionInput> inputs, const PartitionPlace& place,
                                 bool returnsUnused, OutputTypes& types) override;

  ReducedValues reduce(std::size_t step, std::span<const Chunk> partials) override;

  std::vector<Chunk> partialsOf(std::size_t step, const ReducedValues& reduced) override;

  void endPartition(std::int64_t partition) override;

  /// The values that `reduce` returned.
  static std::vector<host::Value> valuesOf(const ReducedValues& reduced);

 private:
  std::vector<CallInput> argumentsOf(std::span<const FunctionInput> inputs) const;
  const kxArray* streamOf(std::size_t step, std::int64_t partition, const kxArray* factory);

  /// A random stream serves all calls of a step for one partition. Calls for several partitions may
  /// alternate.
  using StepAndPartition = std::pair<std::size_t, std::int64_t>;

  const AssembledStage& stage_;
  std::map<StepAndPartition, host::Value> streams_;  ///< null where the step needs none
};

}  // namespace kv::runtime

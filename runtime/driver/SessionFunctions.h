#pragma once

#include <cstdint>
#include <map>
#include <span>
#include <vector>

#include "driver/assembleStage.h"
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

  ReducedValues reduce(std::size_t step, std::span<const Chunk> partials) override;

  std::vector<Chunk> partialsOf(std::size_t step, const ReducedValues& reduced) override;

  /// The values that `reduce` returned.
  static std::vector<host::Value> valuesOf(const ReducedValues& reduced);

 private:
  /// The random stream of a step for the partition at hand: one for all its calls; null where the
  /// step needs none.
  struct PartitionStream {
    std::int64_t partition = -1;
    host::Value stream;
  };

  const AssembledStage& stage_;
  std::map<std::size_t, PartitionStream> streams_;  ///< by step
};

}  // namespace kv::runtime

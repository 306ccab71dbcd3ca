#pragma once

#include <cstdint>
#include <map>
#include <span>
#include <vector>

#include "driver/assembleStage.h"
#include "engine/runUnit.h"

namespace kv::runtime {

/// Runs users' functions in the current session, through the FunctionHandle of the operation.
///
/// Lives: the stage outlives it.
class SessionFunctions final : public UserFunctions {
 public:
  explicit SessionFunctions(const AssembledStage& stage) : stage_(stage) {}

  /// Errors: errors::RecordedError with what the function raises;
  ///         "KALVEX:array:MissingOutput" if it gives fewer outputs than the operation has.
  std::vector<Column> call(std::size_t step, const Chunk& rows,
                           std::span<const FunctionInput> inputs, OutputTypes& types) override;

 private:
  /// The random stream of a step for the partition at hand: one for all its chunks; null where the
  /// step wants none.
  struct PartitionStream {
    std::int64_t partition = -1;
    host::Value stream;
  };

  const AssembledStage& stage_;
  std::map<std::size_t, PartitionStream> streams_;  ///< by step
};

}  // namespace kv::runtime

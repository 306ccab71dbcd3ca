#pragma once

#include <cstddef>
#include <cstdint>
#include <exception>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "execution/Stage.h"
#include "kv/runtime/Cancellation.h"
#include "kv/runtime/Chunk.h"
#include "kv/runtime/ElementFunctions.h"

namespace kv::runtime {

/// Runs users' functions for the steps of a stage.
class UserFunctions {
 public:
  virtual ~UserFunctions() = default;

  /// Calls the function of step `step` on one chunk of each input, of partition `partition`,
  /// counted from 0; scalars have one row. The chunks of a partition come in order.
  ///
  /// Errors: what the function raises, as it came.
  virtual std::vector<Column> call(std::size_t step, std::int64_t partition,
                                   std::span<const Operand> inputs) = 0;
};

/// What a unit gives for one output of its stage.
struct SinkResult {
  std::string partial;                        ///< of a built-in aggregate, in byte form
  std::vector<std::vector<Column>> partials;  ///< of a user's aggregate: outputs, chunk by chunk
  std::vector<Chunk> chunks;                  ///< of Collect
};

/// Why a unit gave up: which step failed, on which rows of the partition's source.
struct UnitFailure {
  std::size_t step = 0;
  std::int64_t firstRow = 0;  ///< ordinals [firstRow, lastRow)
  std::int64_t lastRow = 0;
  std::exception_ptr error;
};

struct UnitResult {
  std::int64_t partition = 0;
  std::int64_t rows = 0;  ///< read from the source
  std::vector<SinkResult> sinks;
  std::optional<UnitFailure> failure;
};

/// Streams one partition through a stage: chunk by chunk, from the source to the stage's outputs.
///
/// `unitBytes` is a unit in its byte form; `inputs` stand in the order of their ordinals.
/// Errors: Cancelled within a chunk of the token's being set; std::invalid_argument for bytes that
///         aren't a unit. All others come back as a failure.
UnitResult runUnit(const Stage& stage, std::string_view unitBytes,
                   std::span<const StageInput> inputs, UserFunctions& functions,
                   const CancellationToken& cancellation);

}  // namespace kv::runtime

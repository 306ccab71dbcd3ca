#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "engine/OutputTypes.h"
#include "engine/Stage.h"
#include "engine/StageRows.h"
#include "kv/errors/FailureRecord.h"
#include "kv/runtime/Cancellation.h"
#include "kv/runtime/Chunk.h"
#include "kv/runtime/ElementFunctions.h"

namespace kv::runtime {

/// An input of a user's function.
struct FunctionInput {
  std::optional<Column> rows;  ///< of the chunk at hand; none for a value
  std::size_t value = 0;       ///< the stage's input that each call gets as the user supplied it
};

/// Runs users' functions for the steps of a stage.
class UserFunctions {
 public:
  virtual ~UserFunctions() = default;

  /// Calls the function of step `step` on one chunk of each input. `rows` says which rows of which
  /// partition they are, `types` takes in the types of what the function returns. The chunks of a
  /// partition come in order.
  ///
  /// Errors: what the function raises, as errors::RecordedError; those of OutputTypes.
  virtual std::vector<Column> call(std::size_t step, const Chunk& rows,
                                   std::span<const FunctionInput> inputs, OutputTypes& types) = 0;
};

/// What a unit gives for one output of its stage.
struct SinkResult {
  std::string partial;                        ///< of a built-in aggregate, in byte form
  std::vector<std::vector<Column>> partials;  ///< of a user's aggregate: outputs, chunk by chunk
  std::vector<FunctionInput> noRows;          ///< inputs of a user's aggregate that had no rows
  std::vector<Chunk> chunks;                  ///< of Collect
};

struct UnitResult {
  std::int64_t partition = 0;
  std::int64_t rows = 0;                  ///< of the source
  std::vector<std::int64_t> chunkRows{};  ///< the same, chunk by chunk
  std::vector<SinkResult> sinks;
  std::map<std::size_t, OutputTypes> types;  ///< of users' functions, by step
  std::optional<errors::FailureRecord> failure;
};

/// Streams one partition through a stage: chunk by chunk, from the stage's rows to its outputs.
///
/// `unitBytes` is a unit in its byte form; `inputs` are in the order of their ordinals.
/// Errors: Cancelled within a chunk of the token's being set; what isn't an error, such as an
///         interrupt of a user's function; std::invalid_argument for bytes that aren't a unit. All
///         others come back as a failure.
UnitResult runUnit(const Stage& stage, const StageRows& rows, std::string_view unitBytes,
                   std::span<const StageInput> inputs, UserFunctions& functions,
                   const CancellationToken& cancellation);

}  // namespace kv::runtime

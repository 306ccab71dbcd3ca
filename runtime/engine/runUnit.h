#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string_view>
#include <vector>

#include "column/ExecutionContext.h"
#include "column/MemoryLedger.h"
#include "engine/Stage.h"
#include "engine/StageRows.h"
#include "kv/errors/FailureRecord.h"
#include "operator/OutputTypes.h"
#include "operator/runs.h"

namespace kv::runtime {

/// What one unit gave.
struct UnitResult {
  std::int64_t partition = 0;
  std::int64_t rows = 0;                           ///< of the source, skipped ones included
  std::int64_t skippedRows = 0;                    ///< that weren't read
  std::map<std::size_t, std::int64_t> madeRows{};  ///< by step that makes rows of its own
  std::vector<SinkResult> sinks{};                 ///< by output of the stage
  std::map<std::size_t, OutputTypes> types{};      ///< of the functions that were called, by step
  std::optional<errors::FailureRecord> failure{};
  std::optional<Refusal> refusal{};  ///< of memory, while a unit ran that failed
  std::int64_t keptBytes = 0;        ///< of rows that were kept until then
};

/// Streams one partition through a stage: chunk by chunk, from the stage's rows to its outputs.
///
/// `unitBytes` is a unit in its byte form.
/// Errors: Cancelled within a chunk of the token's being set; "KALVEX:executor:BadBytes" for bytes
///         that aren't a unit. All other errors are returned as a failure.
UnitResult runUnit(const Stage& stage, const StageRows& rows, std::string_view unitBytes,
                   UserFunctions& functions, const ExecutionContext& context);

}  // namespace kv::runtime

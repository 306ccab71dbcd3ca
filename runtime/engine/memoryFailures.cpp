#include "engine/memoryFailures.h"

#include <algorithm>
#include <string>

#include "column/elementTypes.h"
#include "engine/Unit.h"
#include "engine/runUnit.h"
#include "kv/errors/StepError.h"

namespace kv::runtime {

namespace {

/// Below as many rows no result is large, so most evaluations of values in memory take no longer.
constexpr std::int64_t kFewRows = 10'000;

/// True if the rows of a step's result are all rows of the stage.
bool hasAllRows(const Stage& stage, std::size_t step) {
  for (;;) {
    const Step& planned = stage.steps()[step];
    if (planned.op->facts().rows == RowEffect::Create) {
      return true;
    }
    const auto input = std::ranges::find(planned.inputs, false, &StepLink::isStageInput);
    if (planned.op->facts().rows != RowEffect::Keep || input == planned.inputs.end()) {
      return false;
    }
    step = input->index;
  }
}

std::optional<std::int64_t> knownRowsOf(const StageRows& rows) {
  std::int64_t all = 0;
  for (std::int64_t partition = 0; partition < rows.numPartitions(); ++partition) {
    const std::optional<std::int64_t> known = rows.knownRows(partition);
    if (!known) {
      return std::nullopt;
    }
    all += *known;
  }
  return all;
}

/// Bytes of a row of these columns; of a text those of its offset, since more isn't known.
std::int64_t bytesOfRow(const std::vector<Chunk>& chunks) {
  std::int64_t bytes = 0;
  for (const Column& column : chunks.empty() ? std::vector<Column>{} : chunks.front().columns) {
    bytes += column.type() == ElementType::String
                 ? static_cast<std::int64_t>(sizeof(std::int32_t))
                 : static_cast<std::int64_t>(elementSize(column.type()));
  }
  return bytes;
}

}  // namespace

bool isOfMemory(const errors::FailureRecord& failure) {
  return failure.error.identifier == kLimitTooSmall || failure.error.identifier == kResultTooLarge;
}

bool nameRefusal(errors::FailureRecord& failure, std::string_view id, std::string_view operation,
                 const std::optional<Refusal>& refusal) {
  if (!refusal || failure.error.identifier != "KALVEX:OutOfMemory") {
    return false;
  }
  const errors::StepError named(id, {std::string(operation), shownBytes(refusal->needBytes),
                                     shownBytes(refusal->limitBytes)});
  failure.error = errors::recordFailure(std::make_exception_ptr(named)).error;
  failure.foreign = nullptr;
  return true;
}

std::vector<std::int64_t> knownResultBytes(const Stage& stage, const StageRows& rows,
                                           UserFunctions& functions,
                                           const ExecutionContext& context) {
  std::vector<std::int64_t> bytes(stage.outputs().size());
  const auto keepsAll = [&](std::size_t output) {
    const Step& step = stage.steps()[output];
    return step.op->facts().sinkRows == SinkRows::Kept && !step.inputs.front().isStageInput &&
           hasAllRows(stage, step.inputs.front().index);
  };
  if (stage.callsUser() || std::ranges::none_of(stage.outputs(), keepsAll)) {
    return bytes;
  }
  const std::optional<std::int64_t> count = knownRowsOf(rows);
  if (!count || *count < kFewRows) {
    return bytes;
  }
  const Unit withoutRows{.partition = rows.numPartitions(), .numPartitions = rows.numPartitions()};
  const UnitResult types = runUnit(stage, rows, withoutRows.toBytes(), functions, context);
  for (std::size_t i = 0; i < types.sinks.size() && !types.failure; ++i) {
    bytes[i] = keepsAll(stage.outputs()[i]) ? *count * bytesOfRow(types.sinks[i].chunks) : 0;
  }
  return bytes;
}

}  // namespace kv::runtime

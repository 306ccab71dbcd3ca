#include "executor/runStage.h"

#include <algorithm>
#include <iterator>
#include <system_error>
#include <utility>

#include "engine/Unit.h"
#include "engine/memoryFailures.h"
#include "executor/Admission.h"
#include "executor/SerialUnits.h"
#include "executor/ThreadUnits.h"
#include "kv/runtime/Progress.h"

namespace kv::runtime {

std::unique_ptr<UnitService> makeUnitService(int threads, std::int64_t numPartitions,
                                             const StageScope& scope) {
  const auto useful = static_cast<int>(std::min<std::int64_t>(threads, numPartitions));
  if (useful > 1) {
    try {
      return std::make_unique<ThreadUnits>(useful, scope);
    } catch (const std::system_error&) {
      // The system refuses even one thread.
    }
  }
  return std::make_unique<SerialUnits>(scope);
}

namespace {

/// Gives a failure of memory its id. Rows that are kept count as the cause if they have a good part
/// of it.
void nameMemory(UnitResult& result, const OrderedMerge& merge) {
  if (!result.failure) {
    return;
  }
  const Stage& stage = merge.stage();
  const std::int64_t keptBytes = merge.keptBytes() + result.keptBytes;
  if (result.refusal && keptBytes > result.refusal->needBytes / 4) {
    const std::size_t sink = *std::ranges::find_if(stage.outputs(), [&](std::size_t output) {
      return stage.steps()[output].op->facts().sinkRows == SinkRows::Kept;
    });
    if (nameRefusal(*result.failure, kResultTooLarge,
                    stage.originOf(stage.steps()[sink].inputs.front()), result.refusal)) {
      result.failure->step = sink;
    }
  } else {
    nameRefusal(*result.failure, kLimitTooSmall, stage.steps()[result.failure->step].label,
                result.refusal);
  }
}

/// Puts a unit back that was refused memory, unless it had what it would have had on one thread.
bool postpones(const UnitResult& result, bool wasAlone, Admission& admission, OrderedMerge& merge) {
  if (!result.refusal || (wasAlone && !merge.hasEarly())) {
    return false;
  }
  admission.postpone(result.partition);
  for (const std::int64_t early : wasAlone ? merge.dropEarly() : std::vector<std::int64_t>{}) {
    admission.postpone(early);
  }
  return true;
}

}  // namespace

std::optional<errors::FailureRecord> runStage(UnitService& units, OrderedMerge& merge,
                                              const StageRows& rows, std::uint64_t number) {
  Admission admission(rows, units.threads());
  ProgressScope progress(static_cast<std::int64_t>(number) + 1, rows.numPartitions());
  Unit unit{.stage = number, .numPartitions = rows.numPartitions()};
  std::int64_t end = rows.numPartitions();  // partitions after one that failed aren't needed
  while (std::ssize(merge.partitionRows()) < end) {
    const std::int64_t last = std::ssize(merge.partitionRows()) + units.window();
    while (const std::optional<std::int64_t> partition = admission.next(std::min(end, last))) {
      unit.partition = *partition;
      unit.range = rows.rangeOf(*partition);
      units.submit(unit.toBytes());
    }
    UnitResult result = *units.next();
    if (postpones(result, admission.finish(result.partition), admission, merge)) {
      continue;
    }
    if (result.failure) {
      nameMemory(result, merge);
      end = result.partition + 1;
      units.cancelAfter(result.partition);
      admission.cancelAfter(result.partition);
    }
    if (auto failure = merge.add(std::move(result))) {
      return failure;
    }
    progress.setUnits(std::ssize(merge.partitionRows()));
    if (!merge.wantsMore()) {
      units.cancelAfter(-1);
      return std::nullopt;
    }
  }
  if (!merge.hasUncalledFunction()) {
    return std::nullopt;
  }
  unit.partition = rows.numPartitions();
  unit.knownTypes = merge.knownTypes();
  units.submit(unit.toBytes());
  UnitResult result = *units.next();
  nameMemory(result, merge);
  return merge.add(std::move(result));
}

}  // namespace kv::runtime

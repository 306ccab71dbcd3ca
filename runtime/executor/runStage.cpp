#include "executor/runStage.h"

#include <algorithm>
#include <iterator>
#include <system_error>
#include <utility>

#include "engine/Unit.h"
#include "executor/SerialUnits.h"
#include "executor/ThreadUnits.h"

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

std::optional<errors::FailureRecord> runStage(UnitService& units, OrderedMerge& merge,
                                              std::uint64_t number, std::int64_t numPartitions) {
  Unit unit{.stage = number, .numPartitions = numPartitions};
  std::int64_t end = numPartitions;  // partitions after one that failed aren't needed
  while (std::ssize(merge.partitionRows()) < end) {
    const std::int64_t last = std::ssize(merge.partitionRows()) + units.window();
    for (; unit.partition < std::min(end, last); ++unit.partition) {
      units.submit(unit.toBytes());
    }
    UnitResult result = *units.next();
    if (result.failure) {
      end = result.partition + 1;
      units.cancelAfter(result.partition);
    }
    if (auto failure = merge.add(std::move(result))) {
      return failure;
    }
  }
  if (!merge.hasUncalledFunction()) {
    return std::nullopt;
  }
  unit.partition = numPartitions;
  unit.knownTypes = merge.knownTypes();
  units.submit(unit.toBytes());
  return merge.add(*units.next());
}

}  // namespace kv::runtime

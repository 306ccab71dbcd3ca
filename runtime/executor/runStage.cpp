#include "executor/runStage.h"

#include <algorithm>
#include <iterator>

#include "engine/Unit.h"
#include "executor/SerialUnits.h"
#include "executor/ThreadUnits.h"

namespace kv::runtime {

std::unique_ptr<UnitService> makeUnitService(int threads, std::int64_t numPartitions) {
  const auto useful = static_cast<int>(std::min<std::int64_t>(threads, numPartitions));
  if (useful <= 1) {
    return std::make_unique<SerialUnits>();
  }
  return std::make_unique<ThreadUnits>(useful);
}

std::optional<errors::FailureRecord> runStage(UnitService& units, OrderedMerge& merge,
                                              std::uint64_t number, std::int64_t numPartitions) {
  Unit unit{.stage = number, .numPartitions = numPartitions};
  while (std::ssize(merge.partitionRows()) < numPartitions) {
    const std::int64_t end = std::ssize(merge.partitionRows()) + units.window();
    for (; unit.partition < std::min(numPartitions, end); ++unit.partition) {
      units.submit(unit.toBytes());
    }
    if (auto failure = merge.add(*units.next())) {
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

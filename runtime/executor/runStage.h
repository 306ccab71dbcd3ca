#pragma once

#include <cstdint>
#include <memory>
#include <optional>

#include "executor/OrderedMerge.h"
#include "executor/UnitService.h"

namespace kv::runtime {

/// The service for a stage of `numPartitions` partitions that may use `threads` threads; fewer are
/// used where the system refuses more.
std::unique_ptr<UnitService> makeUnitService(int threads, std::int64_t numPartitions,
                                             const StageScope& scope);

/// Runs the units of the service's stage, one for each partition, and merges their results; then,
/// if a function of the stage was called for no row at all, the unit without rows.
///
/// `number`: of the stage in its evaluation. `rows`: those of the stage.
/// Result: the failure of the lowest partition that failed, whichever came first; none if all ran.
///         Of memory that a limit didn't allow: "KALVEX:memory:ResultTooLarge" if rows that are
///         kept need a quarter of it, else "KALVEX:memory:LimitTooSmall", whatever else ran (see
///         Admission).
/// Errors: those of UnitService::next.
std::optional<errors::FailureRecord> runStage(UnitService& units, OrderedMerge& merge,
                                              const StageRows& rows, std::uint64_t number);

}  // namespace kv::runtime

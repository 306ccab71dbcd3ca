#pragma once

#include <cstdint>
#include <memory>
#include <optional>

#include "executor/OrderedMerge.h"
#include "executor/UnitService.h"

namespace kv::runtime {

/// A service in this process, for a stage of `numPartitions` partitions that may use `threads`
/// threads; fewer are used where the system refuses more.
std::unique_ptr<UnitService> makeUnitService(int threads, std::int64_t numPartitions);

/// How often a unit is submitted before its loss is a failure.
inline constexpr std::uint32_t kMaxAttempts = 4;

/// Runs the units of a stage, one for each partition, and merges their results; then, if a function
/// of the stage was called for no row at all, the unit without rows.
///
/// A unit that was lost runs again, alone, since what ran it may have ended for lack of memory. A
/// stage with side effects is the exception: there a loss is a failure at once.
///
/// `units`: has begun no stage yet. `number`: of the stage in its evaluation. `rows`: those of the
/// stage.
/// Result: the failure of the lowest partition that failed, whichever came first; none if all ran.
///         Of memory that a limit didn't allow: "KALVEX:memory:ResultTooLarge" if rows that are
///         kept need a quarter of it, else "KALVEX:memory:LimitTooSmall", whatever else ran (see
///         Admission). Of a unit that was lost too often: "KALVEX:executor:UnitLost".
/// Errors: those of UnitService.
std::optional<errors::FailureRecord> runStage(UnitService& units, const StageScope& stage,
                                              OrderedMerge& merge, const StageRows& rows,
                                              std::uint64_t number);

}  // namespace kv::runtime

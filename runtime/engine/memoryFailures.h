#pragma once

#include <cstdint>
#include <optional>
#include <string_view>
#include <vector>

#include "column/ExecutionContext.h"
#include "column/MemoryLedger.h"
#include "engine/StageRows.h"
#include "kv/errors/FailureRecord.h"
#include "operator/UserFunctions.h"

/// What a memory limit doesn't allow, as the user sees it.
namespace kv::runtime {

inline constexpr std::string_view kLimitTooSmall = "KALVEX:memory:LimitTooSmall";
inline constexpr std::string_view kResultTooLarge = "KALVEX:memory:ResultTooLarge";

/// Gives lack of memory that a limit caused the id `id`, one of those above: with `operation`, what
/// is needed, and the limit.
/// Result: false for any other failure, which doesn't change.
bool nameRefusal(errors::FailureRecord& failure, std::string_view id, std::string_view operation,
                 const std::optional<Refusal>& refusal);

/// True for a failure that has one of these ids.
bool isOfMemory(const errors::FailureRecord& failure);

/// The bytes of the rows that each output of a stage keeps, if that is known before they are read:
/// 0 for one that keeps none or few, or whose rows a filter or a user-defined function determines.
///
/// `functions`: aren't called. Cost: as for a chunk without rows.
std::vector<std::int64_t> knownResultBytes(const Stage& stage, const StageRows& rows,
                                           UserFunctions& functions,
                                           const ExecutionContext& context);

}  // namespace kv::runtime

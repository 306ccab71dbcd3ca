#pragma once

#include <span>

#include "driver/slicedCalls.h"
#include "operator/UserFunctions.h"

/// Users' functions that are given the place of their rows in a partition.
namespace kv::runtime {

/// Calls the function of a FunctionHandle: f(info, inputs...) returns [isFinished, outputs...], or
/// [isFinished, unused, outputs...] where `returnsUnused` is set. A function whose step ends rows
/// returns [isFinished] or nothing.
///
/// `info`: a structure with PartitionId, NumPartitions, RelativeIndexInPartition and IsLastChunk.
///         The last two have a column for each input with rows where `returnsUnused` is set.
/// Requires: `rows` are those of a partition.
/// Errors: what the function raises; those of `takeResult`; "KALVEX:array:PartitionResult".
PartitionResults callOnPartition(const OpSpec& spec, const kxArray* functionHandle,
                                 std::span<const CallInput> inputs, const Chunk& rows,
                                 const PartitionPlace& place, bool returnsUnused,
                                 OutputTypes& types);

}  // namespace kv::runtime

#pragma once

#include <cstdint>

#include "kv/runtime/memory.h"

namespace kv::runtime {

/// Bytes that a text counts as where sizes of rows matter and the texts aren't looked at.
inline constexpr std::int64_t kTextBytes = 16;

/// The cut that was requested of `rows` rows of `rowBytes` bytes each.
/// Errors: "KALVEX:datastore:Partitions", "KALVEX:datastore:TooManyRows".
PositionCut cutOf(std::int64_t rows, std::int64_t rowBytes, const CutRequest& request);

}  // namespace kv::runtime

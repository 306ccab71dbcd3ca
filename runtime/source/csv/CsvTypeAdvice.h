#pragma once

#include "source/csv/CsvBlocks.h"
#include "source/csv/CsvColumn.h"

namespace kv::runtime {

/// The smallest type for all values of the type of `column` and for all its fields in `block`;
/// string if no numeric type fits. A 64-bit type that can't be widened is replaced by the other.
///
/// Requires: converting `block` by `column` has a fault.
/// Cost:     one conversion of the column in `block` per candidate type.
ElementType typeThatHolds(const CsvBlock& block, const CsvColumn& column);

}  // namespace kv::runtime

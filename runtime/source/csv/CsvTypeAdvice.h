#pragma once

#include "source/csv/CsvBlocks.h"
#include "source/csv/CsvColumn.h"

namespace kv::runtime {

/// The smallest type that holds what the type of `column` holds and all fields of it in `block`;
/// string if no type of numbers does. A 64-bit type that can't be widened gives way to the other.
///
/// Requires: converting `block` by `column` has a fault.
/// Cost:     a conversion of the column in `block` for each type that comes into question.
ElementType typeThatHolds(const CsvBlock& block, const CsvColumn& column);

}  // namespace kv::runtime

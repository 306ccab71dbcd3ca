#pragma once

#include "kv/runtime/Datastore.h"
#include "source/csv/CsvBlocks.h"
#include "source/csv/CsvColumn.h"

namespace kv::runtime {

/// Reads a block in which a field can't be converted again, record by record, and reports the
/// field. This keeps the reading of good blocks fast.
///
/// Requires: converting `block` by `column`, which `info` describes, has a fault.
/// Errors:   always "KALVEX:datastore:BadField", "KALVEX:datastore:MissingField" or
///           "KALVEX:datastore:NumberTooLarge".
/// Cost:     reads the file up to the field, to count lines.
[[noreturn]] void throwFieldError(const SourceFile& file, const CsvBlock& block,
                                  const CsvColumn& column, const ColumnInfo& info);

}  // namespace kv::runtime

#pragma once

#include "kv/runtime/Datastore.h"
#include "source/parquet/ParquetFooter.h"

namespace kv::runtime {

/// True if no row of a row group can fulfil a condition, by the smallest and largest value that the
/// file states for the column. A missing value fulfils none.
///
/// False where the statement is absent, or may not be exact: bounds that are NaN, and bounds of
/// texts that the file doesn't call exact.
/// Requires: the column is in the footer and can be read.
bool holdsNoRow(const ParquetFooter& footer, int group, const RowCondition& condition,
                arrow::MemoryPool* pool);

}  // namespace kv::runtime

#pragma once

#include <arrow/type_fwd.h>

#include <memory>

#include "sink/RowWriter.h"

namespace kv::runtime {

/// The columns of a table as Arrow's files have them: logicals as bits, missing times as nulls. All
/// may be missing.
std::shared_ptr<arrow::Schema> arrowSchemaOf(const SinkSchema& schema);

/// The rows of a table in that form; shares the buffers where the layout is the same.
std::shared_ptr<arrow::RecordBatch> arrowRows(const Chunk& rows,
                                              const std::shared_ptr<arrow::Schema>& schema);

}  // namespace kv::runtime

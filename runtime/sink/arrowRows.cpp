#include "sink/arrowRows.h"

#include <arrow/array/data.h>
#include <arrow/record_batch.h>
#include <arrow/type.h>

#include <cassert>
#include <iterator>
#include <utility>
#include <vector>

#include "kv/runtime/exportedData.h"

namespace kv::runtime {

std::shared_ptr<arrow::Schema> arrowSchemaOf(const SinkSchema& schema) {
  arrow::FieldVector fields;
  for (std::size_t i = 0; i < schema.names.size(); ++i) {
    fields.push_back(arrow::field(schema.names[i], exportedTypeOf(schema.types[i])));
  }
  return arrow::schema(std::move(fields));
}

std::shared_ptr<arrow::RecordBatch> arrowRows(const Chunk& rows,
                                              const std::shared_ptr<arrow::Schema>& schema) {
  assert(std::ssize(rows.columns) == schema->num_fields());
  std::vector<std::shared_ptr<arrow::ArrayData>> columns;
  for (const Column& column : rows.columns) {
    columns.push_back(exportedData(column));
  }
  return arrow::RecordBatch::Make(schema, rows.rows(), std::move(columns));
}

}  // namespace kv::runtime

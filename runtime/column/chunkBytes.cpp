#include "column/chunkBytes.h"

#include <arrow/array/util.h>
#include <arrow/buffer.h>
#include <arrow/io/memory.h>
#include <arrow/ipc/options.h>
#include <arrow/ipc/reader.h>
#include <arrow/ipc/writer.h>
#include <arrow/record_batch.h>
#include <arrow/type.h>

#include <cassert>
#include <memory>
#include <utility>

#include "column/allocate.h"
#include "column/arrays.h"
#include "column/pool.h"

namespace kv::runtime {

namespace {

struct ColumnKind {
  ElementType type = ElementType::Unknown;
  bool isNullable = false;
};

/// Room for a stream at first.
constexpr std::int64_t kStreamBytes = 4096;

std::string toStream(const arrow::RecordBatch& batch) {
  auto options = arrow::ipc::IpcWriteOptions::Defaults();
  options.memory_pool = currentPool();
  const auto sink = checkArrow(arrow::io::BufferOutputStream::Create(kStreamBytes, currentPool()));
  const auto writer = checkArrow(arrow::ipc::MakeStreamWriter(sink, batch.schema(), options));
  checkArrow(writer->WriteRecordBatch(batch));
  checkArrow(writer->Close());
  return checkArrow(sink->Finish())->ToString();
}

/// Errors: std::bad_alloc when memory is short; null for what isn't a stream of one batch.
std::shared_ptr<arrow::RecordBatch> fromStream(std::string stream, arrow::MemoryPool* pool) {
  auto options = arrow::ipc::IpcReadOptions::Defaults();
  options.memory_pool = pool;
  const auto input =
      std::make_shared<arrow::io::BufferReader>(arrow::Buffer::FromString(std::move(stream)));
  const auto reader = arrow::ipc::RecordBatchStreamReader::Open(input, options);
  throwIfOutOfMemory(reader.status());
  if (!reader.ok()) {
    return nullptr;
  }
  std::shared_ptr<arrow::RecordBatch> batch;
  const arrow::Status status = (*reader)->ReadNext(&batch);
  throwIfOutOfMemory(status);
  return status.ok() && batch != nullptr && batch->ValidateFull().ok() ? batch : nullptr;
}

/// True for the columns of an array with the chunk's trailing dimensions, or for no columns.
bool isArray(const Chunk& chunk) {
  return chunk.columns.empty()
             ? chunk.trailing.empty()
             : chunk.columns.size() == columnsIn(chunk.trailing) && isOfOneType(chunk);
}

}  // namespace

void writeChunk(const Chunk& chunk, ByteWriter& bytes) {
  assert(chunk.rows() == 0 || (chunk.ordinals.isRange() && chunk.ordinals.at(0) == 0));
  arrow::FieldVector fields;
  std::vector<std::shared_ptr<arrow::ArrayData>> columns;
  bytes.flag(chunk.names != nullptr);
  bytes.texts(chunk.names ? *chunk.names : std::vector<std::string>{});
  bytes.number<std::uint64_t>(chunk.columns.size());
  for (const Column& column : chunk.columns) {
    bytes.number(static_cast<std::uint8_t>(column.type()));
    bytes.flag(column.isNullable());
    fields.push_back(arrow::field("", arrowTypeOf(column.type())));
    columns.push_back(column.data());
  }
  writeDimensions(chunk.trailing, bytes);
  bytes.number(chunk.rows());
  const auto batch =
      arrow::RecordBatch::Make(arrow::schema(std::move(fields)), chunk.rows(), std::move(columns));
  bytes.text(toStream(*batch));
}

Chunk readChunk(ByteReader& bytes, arrow::MemoryPool* pool) {
  Chunk chunk;
  const bool isTable = bytes.flag();
  std::vector<std::string> names = bytes.texts();
  std::vector<ColumnKind> kinds(bytes.count());
  for (ColumnKind& kind : kinds) {
    kind.type = readElementType(bytes);
    kind.isNullable = bytes.flag();
  }
  chunk.trailing = readDimensions(bytes);
  const auto rows = bytes.number<std::int64_t>();
  const std::shared_ptr<arrow::RecordBatch> batch = fromStream(bytes.text(), pool);
  const auto numColumns = static_cast<int>(kinds.size());
  if (batch == nullptr || batch->num_columns() != numColumns || batch->num_rows() != rows ||
      (isTable && names.size() != kinds.size())) {
    bytes.refuse();
  }
  for (int i = 0; i < numColumns; ++i) {
    const auto [type, isNullable] = kinds[static_cast<std::size_t>(i)];
    if (!batch->column_data(i)->type->Equals(arrowTypeOf(type))) {
      bytes.refuse();
    }
    const Column column(type, batch->column_data(i));
    chunk.columns.push_back(isNullable ? column.asNullable() : column);
  }
  chunk.ordinals = RowOrdinals(0, rows);
  if (isTable ? !chunk.trailing.empty() : !isArray(chunk)) {
    bytes.refuse();
  }
  if (isTable) {
    chunk.names = std::make_shared<const std::vector<std::string>>(std::move(names));
  }
  return chunk;
}

void writeColumn(const Column& column, ByteWriter& bytes) {
  writeChunk({0, RowOrdinals(0, column.rows()), nullptr, {column}}, bytes);
}

Column readColumn(ByteReader& bytes, arrow::MemoryPool* pool) {
  Chunk chunk = readChunk(bytes, pool);
  if (chunk.columns.size() != 1) {
    bytes.refuse();
  }
  return std::move(chunk.columns.front());
}

}  // namespace kv::runtime

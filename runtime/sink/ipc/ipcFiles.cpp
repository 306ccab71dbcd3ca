// Arrow's IPC file format, without compression: a batch for each chunk. Pieces are files, too;
// their batches are read and written again, which costs a copy in memory.

#include <arrow/io/file.h>
#include <arrow/ipc/options.h>
#include <arrow/ipc/reader.h>
#include <arrow/ipc/writer.h>
#include <arrow/record_batch.h>

#include <memory>
#include <utility>

#include "column/pool.h"
#include "sink/arrowRows.h"

namespace kv::runtime {

namespace {

class IpcWriter final : public RowWriter {
 public:
  IpcWriter(OutputPtr file, const SinkSchema& schema)
      : file_(std::move(file)), schema_(arrowSchemaOf(schema)) {
    auto options = arrow::ipc::IpcWriteOptions::Defaults();
    options.memory_pool = currentPool();
    options.use_threads = false;
    writer_ = file_->checked(arrow::ipc::MakeFileWriter(file_, schema_, options));
  }

  void write(const Chunk& rows) override { writeBatch(*arrowRows(rows, schema_)); }
  void writeBatch(const arrow::RecordBatch& batch) {
    file_->check(writer_->WriteRecordBatch(batch));
  }
  void finish() override { file_->check(writer_->Close()); }

  const OutputFile& file() const { return *file_; }

 private:
  OutputPtr file_;
  std::shared_ptr<arrow::Schema> schema_;
  std::shared_ptr<arrow::ipc::RecordBatchWriter> writer_;
};

class IpcJoiner final : public PieceJoiner {
 public:
  IpcJoiner(const OutputPtr& file, const SinkSchema& schema) : writer_(file, schema) {}

  void append(const std::string& path, std::int64_t /*rows*/) override {
    const OutputFile& file = writer_.file();
    auto options = arrow::ipc::IpcReadOptions::Defaults();
    options.memory_pool = currentPool();
    options.use_threads = false;
    const auto input = file.checked(arrow::io::ReadableFile::Open(path, currentPool()));
    const auto reader = file.checked(arrow::ipc::RecordBatchFileReader::Open(input, options));
    for (int i = 0; i < reader->num_record_batches(); ++i) {
      writer_.writeBatch(*file.checked(reader->ReadRecordBatch(i)));
    }
  }
  void finish() override { writer_.finish(); }

 private:
  IpcWriter writer_;
};

}  // namespace

std::unique_ptr<RowWriter> openIpc(const OutputPtr& file, const SinkSchema& schema,
                                   FilePart /*part*/) {
  return std::make_unique<IpcWriter>(file, schema);
}

std::unique_ptr<PieceJoiner> joinIpc(const OutputPtr& file, const SinkSchema& schema) {
  return std::make_unique<IpcJoiner>(file, schema);
}

}  // namespace kv::runtime

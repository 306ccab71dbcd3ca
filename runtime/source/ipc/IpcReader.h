#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "source/ipc/IpcFile.h"

namespace arrow {
class RecordBatch;
}
namespace arrow::ipc {
class RecordBatchFileReader;
class RecordBatchStreamReader;
}  // namespace arrow::ipc

namespace kv::runtime {

/// Reads record batches of one file as a partition. Chunks are slices of batches, of up to 32,768
/// rows; fewer where rows are wide.
class IpcReader final : public ChunkReader {
 public:
  /// Requires: `input` is of `file`, all columns of the request are in it; `cancellation` outlives
  ///           the reader.
  /// Errors:   "KALVEX:datastore:BadIpc".
  IpcReader(std::unique_ptr<ArrowInput> input, std::shared_ptr<const IpcFile> file,
            BlockRequest request, const CancellationToken& cancellation);
  ~IpcReader() override;

  /// Errors: besides those of the interface, "KALVEX:datastore:BadColumnData" for values that
  ///         contradict the file's schema or headers, "KALVEX:datastore:BadText".
  std::optional<Chunk> next() override;

 private:
  void open();
  void readBatch();
  void check(std::size_t column) const;
  Column take(std::size_t column, std::int64_t rows) const;
  const arrow::Array& arrayOf(std::size_t column) const;
  std::int64_t batchRows() const { return file_->blocks[block_].rows; }
  [[noreturn]] void refuseBatch(std::size_t column, const std::string& reason) const;

  std::shared_ptr<ArrowInput> input_;
  std::shared_ptr<const IpcFile> file_;
  BlockRequest request_;
  const CancellationToken& cancellation_;
  std::shared_ptr<const std::vector<std::string>> names_;
  std::vector<int> places_;  ///< of the columns in a batch as it is read
  std::shared_ptr<arrow::ipc::RecordBatchFileReader> batches_;
  std::shared_ptr<arrow::ipc::RecordBatchStreamReader> stream_;
  std::shared_ptr<arrow::RecordBatch> batch_;  ///< null before it is needed
  std::size_t block_;                          ///< of the file
  std::int64_t row_ = 0;                       ///< the next one of the batch
  std::int64_t nextRow_ = 0;                   ///< of the partition
};

}  // namespace kv::runtime

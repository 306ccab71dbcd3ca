#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "kv/runtime/Datastore.h"
#include "source/parquet/ParquetFooter.h"
#include "source/parquet/ParquetInput.h"

namespace arrow {
class RecordBatchReader;
}
namespace parquet::arrow {
class FileReader;
}

namespace kv::runtime {

/// A partition of Parquet files, and what is read of it.
struct ParquetRequest {
  std::int64_t partition = 0;  ///< of the table
  RowGroups groups;            ///< of the file
  Schema columns;              ///< of the file that are requested, in that order
  arrow::MemoryPool* pool = nullptr;
};

/// Reads row groups of one file as a partition, in chunks of up to 32,768 rows; fewer where rows
/// are wide.
class ParquetReader final : public ChunkReader {
 public:
  /// Requires: `input` is the file of `footer`, all columns of the request are in it; they outlive
  ///           the reader, as does `cancellation`.
  /// Errors:   "KALVEX:datastore:BadParquet".
  ParquetReader(std::unique_ptr<ParquetInput> input, std::shared_ptr<const ParquetFooter> footer,
                ParquetRequest request, const CancellationToken& cancellation);
  ~ParquetReader() override;

  /// Errors: besides those of the interface, "KALVEX:datastore:BadColumnData" for pages that can't
  ///         be decoded or don't match their checksum, "KALVEX:datastore:BadText".
  std::optional<Chunk> next() override;

 private:
  /// A column while it is read; columns are read independently, so that a fault has a column.
  struct ColumnRun {
    std::unique_ptr<arrow::RecordBatchReader> batches;
    std::optional<Column> rest;  ///< rows that were read but not passed on yet
  };

  void open();
  Column take(std::size_t column, std::int64_t rows);
  std::optional<Column> nextBatch(std::size_t column);
  [[noreturn]] void raiseBadData(std::size_t column, const std::string& reason) const;

  std::shared_ptr<ParquetInput> input_;
  std::shared_ptr<const ParquetFooter> footer_;
  ParquetRequest request_;
  const CancellationToken& cancellation_;
  std::shared_ptr<const std::vector<std::string>> names_;
  std::int64_t chunkRows_;
  std::unique_ptr<parquet::arrow::FileReader> file_;
  std::vector<ColumnRun> columns_;
  std::int64_t nextRow_ = 0;  ///< of the partition
};

}  // namespace kv::runtime

#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "kv/runtime/Datastore.h"
#include "source/ArrowInput.h"
#include "source/parquet/ParquetFooter.h"

namespace arrow {
class RecordBatchReader;
}
namespace parquet::arrow {
class FileReader;
}

namespace kv::runtime {

/// Reads row groups of one file as a partition, in chunks of up to 32,768 rows; fewer where rows
/// are wide.
class ParquetReader final : public ChunkReader {
 public:
  /// Requires: `input` is the file of `footer`, all columns of the request are in it; they outlive
  ///           the reader, as does `cancellation`.
  /// Errors:   "KALVEX:datastore:BadParquet".
  ParquetReader(std::unique_ptr<ArrowInput> input, std::shared_ptr<const ParquetFooter> footer,
                BlockRequest request, const CancellationToken& cancellation);
  ~ParquetReader() override;

  /// Errors: besides those of the interface, "KALVEX:datastore:BadColumnData" for pages that can't
  ///         be decoded or don't match their checksum, "KALVEX:datastore:BadText".
  std::optional<Chunk> next() override;

  std::int64_t skippedRows() const override { return skippedRows_; }

 private:
  /// A column while it is read; columns are read independently, so that a fault has a column.
  struct ColumnRun {
    std::unique_ptr<arrow::RecordBatchReader> batches;
    std::optional<Column> rest;  ///< rows that were read but not passed on yet
  };

  /// Row groups [first, end) that are read, one after the other.
  struct Run {
    std::int32_t first = 0;
    std::int32_t end = 0;
    std::int64_t firstRow = 0;  ///< of the partition
    std::int64_t rows = 0;
  };

  void open();
  void findRuns();
  void startRun();
  Column take(std::size_t column, std::int64_t rows);
  std::optional<Column> nextBatch(std::size_t column, std::int64_t firstRow);
  [[noreturn]] void raiseBadData(std::size_t column, const std::string& reason) const;

  std::shared_ptr<ArrowInput> input_;
  std::shared_ptr<const ParquetFooter> footer_;
  BlockRequest request_;
  const CancellationToken& cancellation_;
  std::shared_ptr<const std::vector<std::string>> names_;
  std::int64_t chunkRows_;
  std::unique_ptr<parquet::arrow::FileReader> file_;
  std::vector<ColumnRun> columns_;
  std::vector<int> leaves_;   ///< of the columns
  std::vector<Run> runs_;     ///< in order
  std::size_t run_ = 0;       ///< the one that is read, or the next
  std::int64_t nextRow_ = 0;  ///< of the partition
  std::int64_t skippedRows_ = 0;
};

}  // namespace kv::runtime

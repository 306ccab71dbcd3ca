// Each column has a batch reader of its own over the same row groups: the values are decoded as
// they would be together, but a fault has the name of its column, and the rows of a chunk don't
// depend on which columns are read.

#include "source/parquet/ParquetReader.h"

#include <arrow/array/array_base.h>
#include <arrow/array/util.h>
#include <arrow/record_batch.h>
#include <fmt/format.h>
#include <parquet/arrow/reader.h>
#include <parquet/metadata.h>
#include <parquet/properties.h>

#include <algorithm>
#include <numeric>
#include <utility>

#include "column/concatenate.h"
#include "column/pieces.h"
#include "kv/errors/StepError.h"
#include "source/FileTable.h"
#include "source/arrowColumn.h"
#include "source/parquet/ParquetStatistics.h"

namespace kv::runtime {

namespace {

/// Bytes that a column of a chunk should not exceed.
constexpr std::int64_t kBatchBytes = 4 << 20;

/// Compressed bytes of the requested columns of a row group up to which each column is read in one
/// go. Columns of larger ones are read through a buffer each, so that memory doesn't depend on the
/// size of row groups.
constexpr std::int64_t kWholeBytes = 16 << 20;
constexpr std::int64_t kStreamBytes = 256 * 1024;

/// Rows of a chunk: fewer if the values of some column that can be read are long. Depends on all
/// columns, whichever are requested.
std::int64_t chunkRowsOf(const ParquetFooter& footer, const BlockRun& groups) {
  std::int64_t bytesPerRow = 0;
  for (int group = groups.first; group < groups.end; ++group) {
    const auto facts = footer.metadata->RowGroup(group);
    for (std::size_t i = 0; i < footer.schema.size(); ++i) {
      if (footer.schema[i].isReadable() && facts->num_rows() > 0) {
        const auto column = facts->ColumnChunk(footer.leaves[i]);
        bytesPerRow = std::max(bytesPerRow, column->total_uncompressed_size() / facts->num_rows());
      }
    }
  }
  std::int64_t rows = kPieceRows;
  while (rows > 1 && bytesPerRow > kBatchBytes / rows) {
    rows /= 2;
  }
  return rows;
}

/// The largest sum of compressed bytes that the columns have in a row group.
std::int64_t compressedBytes(const ParquetFooter& footer, const BlockRun& groups,
                             const std::vector<int>& leaves) {
  std::int64_t most = 0;
  for (int group = groups.first; group < groups.end; ++group) {
    const auto facts = footer.metadata->RowGroup(group);
    std::int64_t bytes = 0;
    for (const int leaf : leaves) {
      bytes += std::clamp<std::int64_t>(facts->ColumnChunk(leaf)->total_compressed_size(), 0,
                                        kWholeBytes + 1);
    }
    most = std::max(most, bytes);
  }
  return most;
}

std::string reasonOf(const arrow::Status& status) {
  if (status.IsNotImplemented()) {
    return "its compression or encoding isn't supported";
  }
  return status.message().find("CRC") != std::string::npos
             ? "a page doesn't match its checksum, so the file is damaged"
             : "its pages can't be decoded, so the file is damaged";
}

}  // namespace

ParquetReader::ParquetReader(std::unique_ptr<ArrowInput> input,
                             std::shared_ptr<const ParquetFooter> footer, BlockRequest request,
                             const CancellationToken& cancellation)
    : input_(std::move(input)),
      footer_(std::move(footer)),
      request_(std::move(request)),
      cancellation_(cancellation),
      names_(std::make_shared<const std::vector<std::string>>(columnNames(request_.columns))) {
  const arrow::Status status = statusOf(*input_, [this] {
    open();
    return arrow::Status::OK();
  });
  if (!status.ok()) {
    errors::raiseStep("KALVEX:datastore:BadParquet",
                      {input_->source().file().path, "its footer is damaged"});
  }
}

ParquetReader::~ParquetReader() = default;

void ParquetReader::open() {
  chunkRows_ = chunkRowsOf(*footer_, request_.blocks);
  findRuns();
  if (request_.columns.empty()) {
    return;
  }
  for (const std::string& name : *names_) {
    leaves_.push_back(footer_->leaves[columnIndex(footer_->schema, name)]);
  }
  parquet::ReaderProperties properties(request_.pool);
  properties.set_page_checksum_verification(true);
  if (compressedBytes(*footer_, request_.blocks, leaves_) > kWholeBytes) {
    properties.enable_buffered_stream();
    properties.set_buffer_size(kStreamBytes);
  }
  parquet::ArrowReaderProperties arrowProperties = parquetProperties();
  arrowProperties.set_batch_size(chunkRows_);
  parquet::arrow::FileReaderBuilder builder;
  PARQUET_THROW_NOT_OK(builder.Open(input_, properties, footer_->metadata));
  builder.memory_pool(request_.pool)->properties(arrowProperties);
  PARQUET_ASSIGN_OR_THROW(file_, builder.Build());
  columns_.resize(leaves_.size());
}

/// The row groups that may have a row which fulfils all conditions.
void ParquetReader::findRuns() {
  std::int64_t row = 0;
  for (std::int32_t group = request_.blocks.first; group < request_.blocks.end; ++group) {
    const std::int64_t rows = footer_->metadata->RowGroup(group)->num_rows();
    const bool isSkipped =
        std::ranges::any_of(request_.conditions, [&](const RowCondition& condition) {
          return holdsNoRow(*footer_, group, condition, request_.pool);
        });
    const bool isRead = !isSkipped && rows > 0;
    if (isRead && (runs_.empty() || runs_.back().end != group)) {
      runs_.push_back({group, group, row, 0});
    }
    if (isRead) {
      runs_.back().end = group + 1;
      runs_.back().rows += rows;
    }
    row += rows;
  }
}

/// Opens readers of the next run, after the rows that come before it.
void ParquetReader::startRun() {
  const Run& run = runs_[run_];
  skippedRows_ += run.firstRow - nextRow_;
  nextRow_ = run.firstRow;
  std::vector<int> groups(static_cast<std::size_t>(run.end - run.first));
  std::iota(groups.begin(), groups.end(), run.first);
  for (std::size_t column = 0; column < columns_.size(); ++column) {
    const arrow::Status status = statusOf(*input_, [&] {
      return file_->GetRecordBatchReader(groups, {leaves_[column]})
          .Value(&columns_[column].batches);
    });
    if (!status.ok()) {
      raiseBadData(column, reasonOf(status));
    }
    columns_[column].rest.reset();
  }
}

std::optional<Chunk> ParquetReader::next() {
  cancellation_.throwIfCancelled();
  while (run_ < runs_.size() && nextRow_ == runs_[run_].firstRow + runs_[run_].rows) {
    ++run_;
  }
  if (run_ == runs_.size()) {
    skippedRows_ += request_.blocks.rows - std::exchange(nextRow_, request_.blocks.rows);
    input_->source().throwIfReplaced();
    return std::nullopt;
  }
  if (nextRow_ <= runs_[run_].firstRow) {
    startRun();
  }
  // As chunks would be if nothing was skipped.
  const std::int64_t rows = std::min(chunkRows_ - nextRow_ % chunkRows_,
                                     runs_[run_].firstRow + runs_[run_].rows - nextRow_);
  Chunk chunk{request_.partition, RowOrdinals(nextRow_, rows), names_, {}};
  chunk.columns.reserve(columns_.size());
  for (std::size_t column = 0; column < columns_.size(); ++column) {
    chunk.columns.push_back(take(column, rows));
  }
  nextRow_ += rows;
  return chunk;
}

Column ParquetReader::take(std::size_t column, std::int64_t rows) {
  std::optional<Column>& rest = columns_[column].rest;
  std::vector<Column> parts;
  std::int64_t missing = rows;
  while (missing > 0) {
    std::optional<Column> next =
        rest ? std::exchange(rest, std::nullopt) : nextBatch(column, nextRow_ + rows - missing);
    if (!next) {
      raiseBadData(column, "it has fewer rows than the file");
    }
    const std::int64_t taken = std::min(missing, next->rows());
    if (taken < next->rows()) {
      rest = next->slice(taken, next->rows() - taken);
    }
    parts.push_back(next->slice(0, taken));
    missing -= taken;
  }
  return parts.size() == 1 ? std::move(parts.front()) : concatenate(parts);
}

std::optional<Column> ParquetReader::nextBatch(std::size_t column, std::int64_t firstRow) {
  std::shared_ptr<arrow::RecordBatch> batch;
  const arrow::Status status =
      statusOf(*input_, [&] { return columns_[column].batches->ReadNext(&batch); });
  if (!status.ok()) {
    raiseBadData(column, reasonOf(status));
  }
  if (batch == nullptr) {
    return std::nullopt;
  }
  const ColumnInfo& info = request_.columns[column];
  const arrow::Array& array = *batch->column(0);
  if (elementTypeOf(*array.type()) != info.type || !array.Validate().ok()) {
    raiseBadData(column, "its pages can't be decoded, so the file is damaged");
  }
  if (firstBeyondTimes(array)) {
    raiseBadData(column, "it has a time that doesn't fit 64-bit microseconds");
  }
  Column values = toColumn(info.type, array, request_.pool);
  if (info.type == ElementType::String) {
    if (const auto row = firstNotText(*arrow::MakeArray(values.data()))) {
      const std::int64_t inFile = request_.blocks.firstRow + firstRow + *row + 1;
      errors::raiseStep("KALVEX:datastore:BadText",
                        {input_->source().file().path, std::to_string(inFile), info.name});
    }
  }
  if (values.isNullable() && !info.isNullable) {
    raiseBadData(column, "it has nulls, and the footer says it has none");
  }
  return info.isNullable ? values.asNullable() : values;
}

void ParquetReader::raiseBadData(std::size_t column, const std::string& reason) const {
  const std::int64_t first = request_.blocks.firstRow + nextRow_;
  const std::int64_t end =
      std::min(first + chunkRows_, request_.blocks.firstRow + request_.blocks.rows);
  errors::raiseStep("KALVEX:datastore:BadColumnData",
                    {input_->source().file().path, request_.columns[column].name,
                     std::to_string(first + 1), std::to_string(end), reason});
}

}  // namespace kv::runtime

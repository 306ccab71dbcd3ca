// Arrow's reader gives what a file says, without looking at the values: offsets of texts, codes of
// dictionaries and lengths are checked here before anything relies on them.

#include "source/ipc/IpcReader.h"

#include <arrow/array/array_base.h>
#include <arrow/ipc/options.h>
#include <arrow/ipc/reader.h>
#include <arrow/record_batch.h>

#include <algorithm>
#include <utility>

#include "column/allocate.h"
#include "column/elementTypes.h"
#include "column/pieces.h"
#include "kv/errors/StepError.h"
#include "source/FileTable.h"
#include "source/arrowColumn.h"

namespace kv::runtime {

namespace {

constexpr char kBadBatch[] = "the batch can't be decoded, so the file is damaged";

/// Bytes that a chunk of all columns should not exceed.
constexpr std::int64_t kChunkBytes = 32 << 20;

/// Rows of a chunk of a batch.
std::int64_t chunkRowsOf(const BlockFile::Block& block) {
  const std::int64_t rowBytes = block.rows == 0 ? 0 : block.bytes / block.rows;
  std::int64_t rows = kPieceRows;
  while (rows > 1 && rowBytes > kChunkBytes / rows) {
    rows /= 2;
  }
  return rows;
}

}  // namespace

IpcReader::IpcReader(std::unique_ptr<ArrowInput> input, std::shared_ptr<const IpcFile> file,
                     BlockRequest request, const CancellationToken& cancellation)
    : input_(std::move(input)),
      file_(std::move(file)),
      request_(std::move(request)),
      cancellation_(cancellation),
      names_(std::make_shared<const std::vector<std::string>>(columnNames(request_.columns))),
      block_(static_cast<std::size_t>(request_.blocks.first)) {
  open();
}

IpcReader::~IpcReader() = default;

void IpcReader::open() {
  auto options = arrow::ipc::IpcReadOptions::Defaults();
  options.memory_pool = request_.pool;
  options.use_threads = false;
  options.ensure_alignment = arrow::ipc::Alignment::kDataTypeSpecificAlignment;
  for (const std::string& name : *names_) {
    options.included_fields.push_back(static_cast<int>(columnIndex(file_->schema, name)));
  }
  std::ranges::sort(options.included_fields);
  for (const std::string& name : *names_) {
    const auto number = static_cast<int>(columnIndex(file_->schema, name));
    const auto place = std::ranges::lower_bound(options.included_fields, number);
    places_.push_back(static_cast<int>(place - options.included_fields.begin()));
  }
  if (places_.empty()) {
    return;
  }
  const arrow::Status status = statusOf(*input_, [&] {
    return file_->isStream()
               ? arrow::ipc::RecordBatchStreamReader::Open(input_, options).Value(&stream_)
               : arrow::ipc::RecordBatchFileReader::Open(input_, options).Value(&batches_);
  });
  if (!status.ok()) {
    refuseIpc(input_->source().file(), "its schema is damaged");
  }
}

std::optional<Chunk> IpcReader::next() {
  cancellation_.throwIfCancelled();
  const auto end = static_cast<std::size_t>(request_.blocks.end);
  while (block_ < end && row_ == batchRows()) {
    // A stream has to be read up to the batch, even if it has no rows.
    if (batchRows() == 0 && batch_ == nullptr && file_->isStream()) {
      readBatch();
    }
    batch_.reset();
    row_ = 0;
    ++block_;
  }
  if (block_ >= end) {
    input_->source().throwIfReplaced();
    return std::nullopt;
  }
  if (batch_ == nullptr) {
    readBatch();
  }
  const std::int64_t rows = std::min(chunkRowsOf(file_->blocks[block_]), batchRows() - row_);
  Chunk chunk{request_.partition, RowOrdinals(nextRow_, rows), names_, {}};
  chunk.columns.reserve(places_.size());
  for (std::size_t column = 0; column < places_.size(); ++column) {
    chunk.columns.push_back(take(column, rows));
  }
  row_ += rows;
  nextRow_ += rows;
  return chunk;
}

void IpcReader::readBatch() {
  if (places_.empty()) {
    return;
  }
  const arrow::Status status = statusOf(*input_, [&] {
    return file_->isStream() ? stream_->ReadNext(&batch_)
                             : batches_->ReadRecordBatch(static_cast<int>(block_)).Value(&batch_);
  });
  if (!status.ok() || batch_ == nullptr || batch_->num_rows() != batchRows()) {
    refuseBatch(0, kBadBatch);
  }
  for (std::size_t column = 0; column < places_.size(); ++column) {
    check(column);
  }
}

void IpcReader::check(std::size_t column) const {
  const ColumnInfo& info = request_.columns[column];
  const arrow::Array& array = arrayOf(column);
  if (elementTypeOf(*array.type()) != info.type || array.length() != batchRows()) {
    refuseBatch(column, kBadBatch);
  }
  const arrow::Status status = array.ValidateFull();
  throwIfOutOfMemory(status);
  if (!status.ok()) {
    refuseBatch(column, status.message().find("UTF8") != std::string::npos ? "a text isn't UTF-8"
                                                                           : kBadBatch);
  }
  if (firstBeyondTimes(array)) {
    refuseBatch(column, "it has a time that doesn't fit 64-bit microseconds");
  }
  if (isWhole(info.type) && !info.isNullable && array.null_count() > 0) {
    refuseBatch(column, "it has nulls that the batch's header doesn't count");
  }
}

Column IpcReader::take(std::size_t column, std::int64_t rows) const {
  const ColumnInfo& info = request_.columns[column];
  Column values = toColumn(info.type, *arrayOf(column).Slice(row_, rows), request_.pool);
  return info.isNullable ? values.asNullable() : values;
}

const arrow::Array& IpcReader::arrayOf(std::size_t column) const {
  return *batch_->column(places_[column]);
}

void IpcReader::refuseBatch(std::size_t column, const std::string& reason) const {
  const std::int64_t first = request_.blocks.firstRow + nextRow_;
  errors::raiseStep("KALVEX:datastore:BadColumnData",
                    {input_->source().file().path, request_.columns[column].name,
                     std::to_string(first + 1), std::to_string(first + batchRows()), reason});
}

}  // namespace kv::runtime

#include "datastore/CsvBlocks.h"

#include <arrow/buffer.h>
#include <arrow/csv/parser.h>
#include <arrow/io/file.h>
#include <fmt/format.h>

#include <algorithm>
#include <cstring>
#include <utility>

#include "datastore/textCheck.h"
#include "datastore/throwingPool.h"
#include "functions/allocate.h"
#include "kv/runtime/DataError.h"

namespace kv::runtime {
namespace {

constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";
constexpr std::size_t kShownRecordBytes = 80;
constexpr std::int32_t kAnyColumns = -1;

[[noreturn]] void throwNotReadable(const SourceFile& file, const arrow::Status& status) {
  throwIfOutOfMemory(status);
  throw DataError("KALVEX:datastore:FileNotReadable", {file.path, status.message()},
                  fmt::format("The file '{}' can't be read: {}.", file.path, status.message()));
}

template <class T>
T valueOf(const SourceFile& file, arrow::Result<T> result) {
  if (!result.ok()) throwNotReadable(file, result.status());
  return *std::move(result);
}

std::string shortened(std::string_view record) {
  while (!record.empty() && (record.back() == '\n' || record.back() == '\r'))
    record.remove_suffix(1);
  if (record.size() <= kShownRecordBytes) return std::string(record);
  std::size_t end = kShownRecordBytes;
  while (end > 0 && (static_cast<unsigned char>(record[end]) & 0xC0U) == 0x80U) --end;
  return std::string(record.substr(0, end)) + "...";
}

/// What Arrow's parser says of a row with too few or too many fields, kept to be told our way.
struct RaggedRow {
  std::int64_t row = 0;
  std::int32_t found = 0;
  std::int32_t expected = 0;
  std::string record;

  [[noreturn]] void raise(const SourceFile& file) const {
    throw DataError(
        "KALVEX:datastore:RaggedRow",
        {file.path, std::to_string(row), std::to_string(found), std::to_string(expected), record},
        fmt::format("'{}', row {}: the row has {} field{}, the header has {}: {}", file.path, row,
                    found, found == 1 ? "" : "s", expected, record));
  }
};

}  // namespace

std::int64_t CsvBlock::rows() const { return fields->num_rows(); }

CsvBlocks::CsvBlocks(SourceFile file, std::int64_t blockBytes)
    : file_(std::move(file)),
      blockBytes_(static_cast<std::size_t>(blockBytes)),
      buffer_(blockBytes_ + 1) {
  file_.throwIfChanged();
  input_ = valueOf(file_, arrow::io::ReadableFile::Open(file_.absolutePath));
  options_.newlines_in_values = true;
}

CsvBlocks::~CsvBlocks() = default;

std::vector<std::string> CsvBlocks::readHeader() {
  refill();
  skipByteOrderMark();
  const std::optional<CsvBlock> header = nextOf(kAnyColumns, /*maxRows=*/1);
  if (!header) {
    throw DataError("KALVEX:datastore:EmptyFile", {file_.path},
                    fmt::format("The file '{}' is empty; a header with the names of the columns "
                                "was expected.",
                                file_.path));
  }
  std::vector<std::string> names;
  const auto take = [&names](const std::uint8_t* text, std::uint32_t size, auto...) {
    names.emplace_back(reinterpret_cast<const char*>(text), size);
    return arrow::Status::OK();
  };
  const arrow::Status status = header->fields->VisitLastRow(take);
  if (!status.ok()) throwNotReadable(file_, status);
  columns_ = header->fields->num_cols();
  nextRow_ = 0;
  return names;
}

std::optional<CsvBlock> CsvBlocks::next() { return nextOf(columns_, kCsvBlockRows); }

std::optional<CsvBlock> CsvBlocks::nextOf(std::int32_t columns, std::int32_t maxRows) {
  for (;;) {
    if (mayHoldRecords_) {
      if (auto block = parse(columns, maxRows)) return block;
    }
    if (isAtEnd_) {
      if (begin_ < end_) throwEndlessRecord();
      return std::nullopt;
    }
    refill();
  }
}

std::optional<CsvBlock> CsvBlocks::parse(std::int32_t columns, std::int32_t maxRows) {
  mayHoldRecords_ = false;
  skipEmptyLines();
  if (unread().empty()) return std::nullopt;
  RaggedRow ragged;
  options_.invalid_row_handler = [&ragged](const arrow::csv::InvalidRow& row) {
    ragged = {row.number, row.actual_columns, row.expected_columns, shortened(row.text)};
    return arrow::csv::InvalidRowResult::Error;
  };
  CsvBlock block;
  block.fields = std::make_unique<arrow::csv::BlockParser>(throwingPool(), options_, columns,
                                                           /*first_row=*/nextRow_ + 1, maxRows);
  std::uint32_t parsedBytes = 0;
  const arrow::Status status = block.fields->Parse(unread(), &parsedBytes);
  if (ragged.row > 0) ragged.raise(file_);
  throwIfOutOfMemory(status);
  // Only for a header does the parser count it as an error that there is no whole record.
  if (!status.ok() && columns == kAnyColumns) return std::nullopt;
  if (!status.ok()) throwNotReadable(file_, status);

  block.firstRow = nextRow_;
  block.byteOffset = offset_;
  block.records = unread().substr(0, parsedBytes);
  advance(parsedBytes);
  nextRow_ += block.rows();
  mayHoldRecords_ = block.rows() == maxRows;
  if (block.rows() == 0) return std::nullopt;
  return block;
}

void CsvBlocks::refill() {
  if (unread().size() > kCsvRecordBytes) throwEndlessRecord();
  std::memmove(buffer_.data(), buffer_.data() + begin_, end_ - begin_);
  checked_ -= begin_;
  end_ -= begin_;
  begin_ = 0;
  buffer_.resize(std::max(buffer_.size(), end_ + blockBytes_ + 1));
  const auto wanted = static_cast<std::int64_t>(blockBytes_);
  const std::int64_t got = valueOf(file_, input_->Read(wanted, buffer_.data() + end_));
  end_ += static_cast<std::size_t>(got);
  isAtEnd_ = got < wanted;
  mayHoldRecords_ = true;
  checkText();
  // A record without an end of line is whole at the end of the file: give it one.
  if (isAtEnd_ && end_ > 0) buffer_[end_++] = '\n';
}

void CsvBlocks::checkText() {
  const std::string_view unchecked(buffer_.data() + checked_, end_ - checked_);
  const std::size_t good = textLength(unchecked);
  checked_ += good;
  const bool isCut = !isAtEnd_ && isCutCharacter(unchecked.substr(good));
  if (good == unchecked.size() || isCut) return;
  const std::int64_t at = offset_ + static_cast<std::int64_t>(checked_ - begin_);
  const std::int64_t line = lineOfOffset(file_, at);
  throw DataError("KALVEX:datastore:NotText",
                  {file_.path, std::to_string(line), std::to_string(at)},
                  fmt::format("'{}', line {}: the byte 0x{:02X} at offset {} isn't text in UTF-8.",
                              file_.path, line, static_cast<unsigned char>(unchecked[good]), at));
}

void CsvBlocks::skipByteOrderMark() {
  if (unread().starts_with(kByteOrderMark)) advance(kByteOrderMark.size());
}

/// So that what is left after the last record is empty, and a record's line is its own.
void CsvBlocks::skipEmptyLines() {
  advance(std::min(unread().find_first_not_of("\r\n"), unread().size()));
}

void CsvBlocks::advance(std::size_t bytes) {
  begin_ += bytes;
  offset_ += static_cast<std::int64_t>(bytes);
}

void CsvBlocks::throwEndlessRecord() const {
  const std::int64_t line = lineOfOffset(file_, offset_);
  if (isAtEnd_) {
    throw DataError("KALVEX:datastore:UnterminatedQuote", {file_.path, std::to_string(line)},
                    fmt::format("'{}', line {}: a quote that is opened in the record that begins "
                                "here is never closed.",
                                file_.path, line));
  }
  throw DataError("KALVEX:datastore:RecordTooLong",
                  {file_.path, std::to_string(line), std::to_string(kCsvRecordBytes)},
                  fmt::format("'{}', line {}: the record that begins here is longer than {} bytes; "
                              "is there a quote that is never closed?",
                              file_.path, line, kCsvRecordBytes));
}

std::int64_t lineOfOffset(const SourceFile& file, std::int64_t offset) {
  const auto input = valueOf(file, arrow::io::ReadableFile::Open(file.absolutePath));
  std::int64_t line = 1;
  char previous = '\0';
  for (std::int64_t at = 0; at < offset;) {
    const auto part = valueOf(file, input->Read(std::min(kCsvBlockBytes, offset - at)));
    if (part->size() == 0) break;
    at += part->size();
    for (const char c : std::string_view(*part)) {
      if (c == '\r' || (c == '\n' && previous != '\r')) ++line;
      previous = c;
    }
  }
  return line;
}

}  // namespace kv::runtime

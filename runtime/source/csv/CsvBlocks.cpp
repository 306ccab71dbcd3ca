// Reading is a loop of three steps: fill a buffer, check that the new bytes are text, let Arrow's
// parser split complete records. What remains at the end of the buffer (part of a record, part of a
// character) moves to its beginning. All faults of records are found here, while their text is
// still at hand.

#include "source/csv/CsvBlocks.h"

#include <arrow/buffer.h>
#include <arrow/csv/parser.h>
#include <fmt/format.h>

#include <algorithm>
#include <cstring>
#include <utility>

#include "column/ThrowingPool.h"
#include "column/allocate.h"
#include "column/pool.h"
#include "kv/errors/StepError.h"
#include "kv/errors/shownText.h"
#include "source/csv/textCheck.h"
#include "source/distinctNames.h"
#include "source/fileFormats.h"

namespace kv::runtime {

namespace {

constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";
constexpr std::int32_t kAnyColumns = -1;

/// Arrow's report of a row with too few or too many fields.
struct RaggedRow {
  std::int64_t row = 0;
  std::int32_t found = 0;
  std::int32_t expected = 0;
  std::string_view record;  ///< in the buffer that is parsed

  /// `byteOffset`: of the record in the file.
  [[noreturn]] void raise(const SourceFile& file, std::int64_t byteOffset) const {
    const std::int64_t line = lineOfOffset(file, byteOffset);
    const std::string shown =
        errors::shownText(record.substr(0, record.find_last_not_of("\r\n") + 1));
    errors::raiseStep("KALVEX:datastore:RaggedRow",
                      {file.path, std::to_string(row), std::to_string(line), std::to_string(found),
                       std::to_string(expected), shown});
  }
};

/// A parser with a pool of its own, in which nothing is left when the parser is gone.
struct ParserWithPool {
  ParserWithPool(const arrow::csv::ParseOptions& options, std::int32_t columns,
                 std::int64_t firstRow, std::int32_t maxRows)
      : parser(&pool, options, columns, firstRow, maxRows) {}

  ThrowingPool pool{*currentPool()};
  arrow::csv::BlockParser parser;
};

}  // namespace

std::int64_t CsvBlock::rows() const { return fields->num_rows(); }

CsvBlocks::CsvBlocks(SourceFile file, std::int64_t blockBytes)
    : input_(std::move(file)),
      blockBytes_(static_cast<std::size_t>(blockBytes)),
      buffer_(blockBytes_ + 1) {
  options_.newlines_in_values = true;
}

CsvBlocks::~CsvBlocks() = default;

std::vector<std::string> CsvBlocks::readHeader() {
  refill();
  skipByteOrderMark();
  const std::optional<CsvBlock> header = nextOf(kAnyColumns, /*maxRows=*/1);
  if (!header) {
    errors::raiseStep("KALVEX:datastore:EmptyFile", {file().path});
  }
  std::vector<std::string> names;
  const auto take = [&names](const std::uint8_t* text, std::uint32_t size, auto...) {
    names.emplace_back(reinterpret_cast<const char*>(text), size);
    return arrow::Status::OK();
  };
  checkArrow(header->fields->VisitLastRow(take));
  columns_ = header->fields->num_cols();
  nextRow_ = 0;
  return distinctNames(std::move(names));
}

std::optional<CsvBlock> CsvBlocks::next() { return nextOf(columns_, kCsvBlockRows); }

std::optional<CsvBlock> CsvBlocks::nextOf(std::int32_t columns, std::int32_t maxRows) {
  for (;;) {
    if (mayHoldRecords_) {
      if (auto block = parse(columns, maxRows)) {
        return block;
      }
    }
    if (isAtEnd_) {
      if (begin_ < end_) {
        throwEndlessRecord();
      }
      return std::nullopt;
    }
    refill();
  }
}

std::optional<CsvBlock> CsvBlocks::parse(std::int32_t columns, std::int32_t maxRows) {
  mayHoldRecords_ = false;
  skipEmptyLines();
  if (unread().empty()) {
    return std::nullopt;
  }
  RaggedRow ragged;
  options_.invalid_row_handler = [&ragged](const arrow::csv::InvalidRow& row) {
    ragged = {row.number, row.actual_columns, row.expected_columns, row.text};
    return arrow::csv::InvalidRowResult::Error;
  };
  CsvBlock block;
  const auto made = std::make_shared<ParserWithPool>(options_, columns, nextRow_ + 1, maxRows);
  block.fields = {made, &made->parser};
  std::uint32_t parsedBytes = 0;
  const arrow::Status status = block.fields->Parse(unread(), &parsedBytes);
  if (ragged.row > 0) {
    ragged.raise(file(), offset_ + (ragged.record.data() - unread().data()));
  }
  throwIfOutOfMemory(status);
  // Only for a header does the parser treat a missing complete record as an error.
  if (!status.ok() && columns == kAnyColumns) {
    return std::nullopt;
  }
  checkArrow(status);

  block.firstRow = nextRow_;
  block.byteOffset = offset_;
  block.records = unread().substr(0, parsedBytes);
  advance(parsedBytes);
  nextRow_ += block.rows();
  mayHoldRecords_ = block.rows() == maxRows;
  if (block.rows() == 0) {
    return std::nullopt;
  }
  return block;
}

void CsvBlocks::refill() {
  if (unread().size() > kCsvRecordBytes) {
    throwEndlessRecord();
  }
  std::memmove(buffer_.data(), buffer_.data() + begin_, end_ - begin_);
  checked_ -= begin_;
  end_ -= begin_;
  begin_ = 0;
  buffer_.resize(std::max(buffer_.size(), end_ + blockBytes_ + 1));
  const std::size_t got = input_.read(buffer_.data() + end_, blockBytes_);
  end_ += got;
  isAtEnd_ = got < blockBytes_;
  mayHoldRecords_ = true;
  checkText();
  // At the end of the file, a record without a line end is complete: add one.
  if (isAtEnd_ && end_ > 0) {
    buffer_[end_++] = '\n';
  }
}

void CsvBlocks::checkText() {
  const std::string_view unchecked(buffer_.data() + checked_, end_ - checked_);
  const std::size_t good = textLength(unchecked);
  checked_ += good;
  const bool isCut = !isAtEnd_ && isCutCharacter(unchecked.substr(good));
  if (good == unchecked.size() || isCut) {
    return;
  }
  const FileFormat* format = offset_ == 0 ? formatOf(unread()) : nullptr;
  if (format == nullptr) {
    throwNotText(offset_ + static_cast<std::int64_t>(checked_ - begin_),
                 static_cast<unsigned char>(unchecked[good]));
  }
  errors::raiseStep("KALVEX:datastore:OtherFormat", {file().path, format->name, format->advice});
}

void CsvBlocks::throwNotText(std::int64_t at, unsigned char byte) const {
  const std::int64_t line = lineOfOffset(file(), at);
  errors::raiseStep(
      "KALVEX:datastore:NotText",
      {file().path, std::to_string(line), std::to_string(at), fmt::format("0x{:02X}", byte)});
}

void CsvBlocks::skipByteOrderMark() {
  if (unread().starts_with(kByteOrderMark)) {
    advance(kByteOrderMark.size());
  }
}

/// Makes sure that nothing is left after the last record, and that a record's line is its own.
void CsvBlocks::skipEmptyLines() {
  advance(std::min(unread().find_first_not_of("\r\n"), unread().size()));
}

void CsvBlocks::advance(std::size_t bytes) {
  begin_ += bytes;
  offset_ += static_cast<std::int64_t>(bytes);
}

void CsvBlocks::throwEndlessRecord() const {
  const std::string& path = file().path;
  const std::int64_t line = lineOfOffset(file(), offset_);
  if (isAtEnd_) {
    errors::raiseStep("KALVEX:datastore:UnterminatedQuote", {path, std::to_string(line)});
  }
  errors::raiseStep("KALVEX:datastore:RecordTooLong",
                    {path, std::to_string(line), std::to_string(kCsvRecordBytes)});
}

std::int64_t lineOfOffset(const SourceFile& file, std::int64_t offset) {
  SourceInput input(file);
  std::vector<char> part(static_cast<std::size_t>(std::min(kCsvBlockBytes, offset)));
  std::int64_t line = 1;
  char previous = '\0';
  for (std::int64_t at = 0; at < offset;) {
    const auto wanted = std::min<std::int64_t>(kCsvBlockBytes, offset - at);
    const std::size_t got = input.read(part.data(), static_cast<std::size_t>(wanted));
    if (got == 0) {
      break;
    }
    at += static_cast<std::int64_t>(got);
    for (const char c : std::string_view(part.data(), got)) {
      if (c == '\r' || (c == '\n' && previous != '\r')) {
        ++line;
      }
      previous = c;
    }
  }
  return line;
}

}  // namespace kv::runtime

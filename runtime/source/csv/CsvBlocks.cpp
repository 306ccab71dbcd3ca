// Reading is a loop of three steps: fill a buffer, check that the new bytes are text, let Arrow's
// parser split complete records. What remains at the end of the buffer (part of a record, part of a
// character) moves to its beginning. All faults of records are found here, while their text is
// still at hand.

#include "source/csv/CsvBlocks.h"

#include <arrow/buffer.h>
#include <arrow/csv/parser.h>
#include <fmt/format.h>

#include <algorithm>
#include <cassert>
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

constexpr std::int32_t kAnyColumns = -1;

/// Arrow's report of a row with too few or too many fields.
struct RaggedRow {
  std::int64_t row = 0;
  std::int32_t found = 0;
  std::int32_t expected = 0;
  std::string_view record;  ///< in the buffer that is parsed
};

/// A parser with a pool of its own, in which nothing is left when the parser is gone.
struct ParserWithPool {
  ParserWithPool(const arrow::csv::ParseOptions& options, std::int32_t columns,
                 std::int64_t firstRow, std::int32_t maxRows)
      : parser(&pool, options, columns, firstRow, maxRows) {}

  ThrowingPool pool{*currentPool()};
  arrow::csv::BlockParser parser;
};

std::shared_ptr<arrow::csv::BlockParser> makeParser(const arrow::csv::ParseOptions& options,
                                                    std::int32_t columns, std::int64_t firstRow,
                                                    std::int64_t maxRows) {
  const auto made = std::make_shared<ParserWithPool>(options, columns, firstRow,
                                                     static_cast<std::int32_t>(maxRows));
  return {made, &made->parser};
}

/// What an offset in a compressed file refers to.
const char* placeNote(const CsvFile& file) {
  return file.isCompressed() ? " of the uncompressed text" : "";
}

/// The names of `columns` columns that a file doesn't name: `column_1`, `column_2`, ...
std::vector<std::string> numberedNames(std::int32_t columns) {
  std::vector<std::string> names;
  for (std::int32_t column = 1; column <= columns; ++column) {
    names.push_back(fmt::format("column_{}", column));
  }
  return names;
}

std::vector<std::string> namesIn(const CsvBlock& header) {
  std::vector<std::string> names;
  const auto take = [&names](const std::uint8_t* text, std::uint32_t size, auto...) {
    names.emplace_back(reinterpret_cast<const char*>(text), size);
    return arrow::Status::OK();
  };
  checkArrow(header.fields->VisitLastRow(take));
  return distinctNames(std::move(names));
}

}  // namespace

std::int64_t CsvBlock::rows() const { return fields->num_rows(); }

CsvBlock firstRecords(const CsvBlock& block, std::int64_t rows, const CsvFormat& format) {
  assert(rows >= 1 && rows <= block.rows());
  CsvBlock first;
  first.firstRow = block.firstRow;
  first.byteOffset = block.byteOffset;
  first.fields =
      makeParser(parseOptions(format), block.fields->num_cols(), block.firstRow + 1, rows);
  std::uint32_t bytes = 0;
  checkArrow(first.fields->Parse(block.records, &bytes));
  first.records = block.records.substr(0, bytes);
  return first;
}

CsvBlocks::CsvBlocks(CsvFile file, std::int64_t blockBytes)
    : CsvBlocks(file, {0, file.file.bytes}, blockBytes) {}

CsvBlocks::CsvBlocks(CsvFile file, ByteRange range, std::int64_t blockBytes)
    : file_(std::move(file)),
      range_(range),
      text_(openText(file_, range)),
      blockBytes_(static_cast<std::size_t>(blockBytes)),
      options_(parseOptions(file_.format)),
      buffer_(blockBytes_ + 1, currentResource()),
      offset_(range.begin) {
  assert(blockBytes >= 3);
}

CsvBlocks::~CsvBlocks() = default;

std::vector<std::string> CsvBlocks::readHeader() {
  assert(range_.begin == 0);
  refill();
  skipByteOrderMark();
  const std::optional<CsvBlock> header = nextOf(kAnyColumns, /*maxRows=*/1);
  if (!header) {
    errors::raiseStep(
        "KALVEX:datastore:EmptyFile",
        {path(), file_.format.hasHeader ? "a header with the names of the columns" : "a record"});
  }
  columns_ = header->fields->num_cols();
  nextRow_ = 0;
  if (file_.format.hasHeader) {
    return namesIn(*header);
  }
  putBack(*header);
  return numberedNames(columns_);
}

/// Makes the first record the next one again.
void CsvBlocks::putBack(const CsvBlock& first) {
  begin_ -= first.records.size();
  offset_ -= static_cast<std::int64_t>(first.records.size());
  mayHoldRecords_ = true;
}

void CsvBlocks::skipHeader(std::size_t columns) { columns_ = static_cast<std::int32_t>(columns); }

std::optional<CsvBlock> CsvBlocks::next() { return nextOf(columns_, kCsvBlockRows); }

std::optional<CsvBlock> CsvBlocks::nextOf(std::int32_t columns, std::int32_t maxRows) {
  for (;;) {
    if (mayHoldRecords_) {
      if (auto block = parse(columns, maxRows)) {
        return block;
      }
    }
    if (isBad_) {
      throwNotText();
    }
    if (isAtEnd_) {
      if (begin_ < end_) {
        throwUnterminated();
      }
      return std::nullopt;
    }
    refill();
  }
}

std::optional<CsvBlock> CsvBlocks::parse(std::int32_t columns, std::int32_t maxRows) {
  mayHoldRecords_ = false;
  skipEmptyLines();
  if (readable().empty()) {
    return std::nullopt;
  }
  RaggedRow ragged;
  options_.invalid_row_handler = [&ragged](const arrow::csv::InvalidRow& row) {
    ragged = {row.number, row.actual_columns, row.expected_columns, row.text};
    return arrow::csv::InvalidRowResult::Error;
  };
  CsvBlock block;
  block.fields = makeParser(options_, columns, /*firstRow=*/nextRow_ + 1, maxRows);
  std::uint32_t parsedBytes = 0;
  const arrow::Status status = block.fields->Parse(readable(), &parsedBytes);
  if (ragged.row > 0) {
    const std::int64_t good = ragged.row - 1 - nextRow_;
    if (good > 0) {
      return parse(columns, static_cast<std::int32_t>(good));
    }
    throwRagged(ragged.row, ragged.found, ragged.expected, ragged.record);
  }
  throwIfOutOfMemory(status);
  // Only for a header does the parser treat a missing complete record as an error.
  if (!status.ok() && columns == kAnyColumns) {
    return std::nullopt;
  }
  checkArrow(status);
  if (isFirstTooLong(parsedBytes, columns)) {
    throwTooLong();
  }

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

/// Only the first record in the buffer may be so long, because the buffer grows for it alone.
bool CsvBlocks::isFirstTooLong(std::size_t parsedBytes, std::int32_t columns) const {
  if (parsedBytes <= kCsvRecordBytes) {
    return false;
  }
  std::uint32_t bytes = 0;
  checkArrow(makeParser(options_, columns, nextRow_ + 1, 1)->Parse(readable(), &bytes));
  return bytes > kCsvRecordBytes;
}

void CsvBlocks::refill() {
  if (unread().size() > kCsvRecordBytes) {
    throwTooLong();
  }
  std::memmove(buffer_.data(), buffer_.data() + begin_, end_ - begin_);
  checked_ -= begin_;
  end_ -= begin_;
  begin_ = 0;
  buffer_.resize(std::max(buffer_.size(), end_ + blockBytes_ + 1));
  end_ += text_->read(buffer_.data() + end_, blockBytes_);
  isAtEnd_ = text_->isAtEnd();
  mayHoldRecords_ = true;
  checkText();
  // At the end of the file, a record without a line end is complete: add one.
  if (isAtEnd_ && end_ > 0 && !isBad_) {
    buffer_[end_++] = '\n';
  }
}

void CsvBlocks::checkText() {
  const std::string_view unchecked(buffer_.data() + checked_, end_ - checked_);
  const std::size_t good = textLength(unchecked);
  checked_ += good;
  isBad_ = good < unchecked.size() && (isAtEnd_ || !isCutCharacter(unchecked.substr(good)));
  const FileFormat* format = isBad_ && offset_ == 0 ? formatOf(unread()) : nullptr;
  if (format != nullptr) {
    errors::raiseStep("KALVEX:datastore:OtherFormat", {path(), format->name, format->advice});
  }
}

void CsvBlocks::throwNotText() const {
  const std::int64_t at = offset_ + static_cast<std::int64_t>(checked_ - begin_);
  const std::int64_t line = lineOfOffset(file_, at);
  const auto byte = static_cast<unsigned char>(buffer_[checked_]);
  errors::raiseStep("KALVEX:datastore:NotText",
                    {path(), std::to_string(line), fmt::format("{}{}", at, placeNote(file_)),
                     fmt::format("0x{:02X}", byte)});
}

void CsvBlocks::throwRagged(std::int64_t row, std::int32_t found, std::int32_t expected,
                            std::string_view record) const {
  const std::int64_t line = lineOfOffset(file_, offset_ + (record.data() - unread().data()));
  const std::int64_t inFile = recordsBefore(file_, range_.begin) + row;
  const std::string shown =
      errors::shownText(record.substr(0, record.find_last_not_of("\r\n") + 1));
  errors::raiseStep(
      "KALVEX:datastore:RaggedRow",
      {path(), std::to_string(inFile), std::to_string(line), std::to_string(found),
       std::to_string(expected), shown, file_.format.hasHeader ? "header" : "first record",
       separatorNote(file_.format)});
}

void CsvBlocks::skipByteOrderMark() {
  if (unread().starts_with(kByteOrderMark)) {
    advance(kByteOrderMark.size());
  }
}

/// Makes sure that nothing is left after the last record, and that a record's line is its own.
void CsvBlocks::skipEmptyLines() {
  advance(std::min(readable().find_first_not_of("\r\n"), readable().size()));
}

void CsvBlocks::advance(std::size_t bytes) {
  begin_ += bytes;
  offset_ += static_cast<std::int64_t>(bytes);
}

void CsvBlocks::throwTooLong() const {
  errors::raiseStep(
      "KALVEX:datastore:RecordTooLong",
      {path(), std::to_string(lineOfOffset(file_, offset_)), std::to_string(kCsvRecordBytes)});
}

void CsvBlocks::throwUnterminated() const {
  errors::raiseStep("KALVEX:datastore:UnterminatedQuote",
                    {path(), std::to_string(lineOfOffset(file_, offset_))});
}

std::int64_t lineOfOffset(const CsvFile& file, std::int64_t offset) {
  const std::unique_ptr<CsvText> text = openText(file, {0, file.file.bytes});
  std::vector<char> part;
  std::int64_t line = 1;
  char previous = '\0';
  for (std::int64_t at = 0; at < offset && !text->isAtEnd(); at += std::ssize(part)) {
    part.resize(static_cast<std::size_t>(std::min(kCsvBlockBytes, offset - at)));
    part.resize(text->read(part.data(), part.size()));
    for (const char c : part) {
      if (c == '\r' || (c == '\n' && previous != '\r')) {
        ++line;
      }
      previous = c;
    }
  }
  return line;
}

std::int64_t recordsBefore(const CsvFile& file, std::int64_t offset) {
  std::int64_t records = 0;
  if (offset > 0) {
    CsvBlocks blocks(file, {0, offset});
    blocks.readHeader();
    while (const auto block = blocks.next()) {
      records += block->rows();
    }
  }
  return records;
}

}  // namespace kv::runtime

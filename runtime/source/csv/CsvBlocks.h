#pragma once

#include <arrow/csv/options.h>

#include <cstdint>
#include <memory>
#include <memory_resource>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "source/csv/CsvFile.h"
#include "source/csv/CsvText.h"

namespace arrow::csv {
class BlockParser;
}

namespace kv::runtime {

/// Bytes that are read from a CSV file at a time.
inline constexpr std::int64_t kCsvBlockBytes = 1 << 20;

/// Bytes that are read at a time where only the header is needed.
inline constexpr std::int64_t kCsvHeaderBytes = 64 * 1024;

/// Maximum number of records in a block, so that columns of narrow tables stay within a chunk.
inline constexpr std::int32_t kCsvBlockRows = 32 * 1024;

/// Maximum size of a record; a longer one is taken for a quote that was never closed.
inline constexpr std::size_t kCsvRecordBytes = 16 << 20;

/// Some complete records of a CSV file, split into fields.
struct CsvBlock {
  std::shared_ptr<arrow::csv::BlockParser> fields;
  std::int64_t firstRow = 0;    ///< row of data of the first record in its range, counted from 0
  std::int64_t byteOffset = 0;  ///< of `records` in the file
  std::string_view records;     ///< valid until the next block is requested

  std::int64_t rows() const;
};

/// The first `rows` records of a block of a file with this format.
///
/// Requires: 1 <= rows <= block.rows().
/// Lives:    as long as the records of `block`.
CsvBlock firstRecords(const CsvBlock& block, std::int64_t rows, const CsvFormat& format);

/// Reads a range of a CSV file block by block on the calling thread, in bounded memory.
///
/// Faults are reported in the order of the records: all records before a faulty one are returned
/// first, wherever blocks end.
///
/// Arrow's parser splits the fields; this class reads bytes, checks that they are text, and reports
/// faults of records. It replaces Arrow's reader of whole streams, which reads many blocks ahead on
/// a thread of its own and has already released the text of a field when its value turns out to be
/// wrong.
///
/// Invariants:
/// 1. buffer_[begin_, end_) was read but not returned yet. It begins with a record or with empty
///    lines, at position `offset_` of the file.
/// 2. buffer_[begin_, checked_) is text; the rest, if any, is the beginning of one character or, if
///    `isBad_`, begins with a byte that isn't text.
class CsvBlocks {
 public:
  /// Opens the file, which must be as recorded in `file`.
  ///
  /// Requires: blockBytes >= 3, room for a byte order mark.
  /// Errors: as for CsvText.
  explicit CsvBlocks(CsvFile file, std::int64_t blockBytes = kCsvBlockBytes);

  /// The same for a part of the file.
  ///
  /// `range`: a record begins at its begin, or the file; another at its end, or the file ends
  /// there.
  CsvBlocks(CsvFile file, ByteRange range, std::int64_t blockBytes = kCsvBlockBytes);
  ~CsvBlocks();
  CsvBlocks(const CsvBlocks&) = delete;
  CsvBlocks& operator=(const CsvBlocks&) = delete;

  const CsvFile& file() const { return file_; }

  /// The names of the columns, from the first record of the file, made unique (distinctNames()).
  /// Called once, before `next`, which returns that record in a file without a header.
  ///
  /// Requires: the range begins with the file.
  /// Errors: "KALVEX:datastore:EmptyFile" if there is no record,
  ///         "KALVEX:datastore:OtherFormat" if the file isn't text at all, and as for `next`.
  std::vector<std::string> readHeader();

  /// For a range after the header, whose record has that many fields; called once, before `next`.
  void skipHeader(std::size_t columns);

  /// The first byte of the file that wasn't returned yet.
  std::int64_t offset() const { return offset_; }

  /// The next records, at least one and at most kCsvBlockRows; empty after the last.
  ///
  /// Errors: "NotText", "RaggedRow", "UnterminatedQuote", "RecordTooLong",
  ///         "SourceChanged" or "FileNotReadable", each with "KALVEX:datastore:" before it.
  std::optional<CsvBlock> next();

 private:
  std::optional<CsvBlock> parse(std::int32_t columns, std::int32_t maxRows);
  std::optional<CsvBlock> nextOf(std::int32_t columns, std::int32_t maxRows);
  std::string_view unread() const { return {buffer_.data() + begin_, end_ - begin_}; }
  std::string_view readable() const {
    return unread().substr(0, (isBad_ ? checked_ : end_) - begin_);
  }
  void refill();
  void checkText();
  [[noreturn]] void throwNotText() const;
  [[noreturn]] void throwRagged(std::int64_t row, std::int32_t found, std::int32_t expected,
                                std::string_view record) const;
  void skipByteOrderMark();
  void skipEmptyLines();
  void advance(std::size_t bytes);
  bool isFirstTooLong(std::size_t parsedBytes, std::int32_t columns) const;
  [[noreturn]] void throwTooLong() const;
  [[noreturn]] void throwUnterminated() const;
  void putBack(const CsvBlock& first);
  const std::string& path() const { return file_.file.path; }

  CsvFile file_;
  ByteRange range_;  ///< its end counts only if the file isn't compressed
  std::unique_ptr<CsvText> text_;
  std::size_t blockBytes_;
  arrow::csv::ParseOptions options_;
  std::pmr::vector<char> buffer_;
  std::size_t begin_ = 0;
  std::size_t end_ = 0;
  std::size_t checked_ = 0;      ///< bytes of the buffer known to be text
  std::int64_t offset_ = 0;      ///< of buffer_[begin_] in the file
  bool isAtEnd_ = false;         ///< the range has no more bytes
  bool isBad_ = false;           ///< buffer_[checked_] isn't text
  bool mayHoldRecords_ = false;  ///< the unread bytes may contain a complete record
  std::int32_t columns_ = 0;
  std::int64_t nextRow_ = 0;
};

/// The line of the file that contains byte `offset`, counted from 1, for messages.
///
/// Cost: reads the file up to there.
std::int64_t lineOfOffset(const CsvFile& file, std::int64_t offset);

/// The number of rows of data in the file before byte `offset`, where one begins.
///
/// Cost: reads the file up to there.
std::int64_t recordsBefore(const CsvFile& file, std::int64_t offset);

}  // namespace kv::runtime

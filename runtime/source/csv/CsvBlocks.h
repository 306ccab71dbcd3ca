#pragma once

#include <arrow/csv/options.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "source/SourceInput.h"

namespace arrow::csv {
class BlockParser;
}

namespace kv::runtime {

/// Bytes that are read from a CSV file at a time.
inline constexpr std::int64_t kCsvBlockBytes = 1 << 20;

/// Records of one block at most, so that the columns of narrow tables keep to the size of a chunk.
inline constexpr std::int32_t kCsvBlockRows = 32 * 1024;

/// Bytes of one record at most; more than that is taken for a quote that was never closed.
inline constexpr std::size_t kCsvRecordBytes = 16 << 20;

/// Some whole records of a CSV file, parted into fields.
struct CsvBlock {
  std::unique_ptr<arrow::csv::BlockParser> fields;
  std::int64_t firstRow = 0;    ///< row of data of the first record, counted from 0
  std::int64_t byteOffset = 0;  ///< of `records` in the file
  std::string_view records;     ///< lives until the next block is asked for

  std::int64_t rows() const;
};

/// Reads a CSV file block by block on the calling thread, in bounded memory.
///
/// Arrow's parser parts the fields; this class reads bytes, checks that they are text, and says
/// what is wrong with records. It stands in the place of Arrow's reader of whole streams, which
/// reads many blocks ahead on a thread of its own, and has let go of the text of a field by the
/// time that its value is known to be wrong.
///
/// Invariants:
/// 1. buffer_[begin_, end_) is what has been read and not handed out. It begins with a record or
///    with empty lines, and stands at `offset_` in the file.
/// 2. buffer_[begin_, checked_) is text; the rest, if any, is the beginning of one character.
class CsvBlocks {
 public:
  /// Opens the file, which must be as it was when `file` was noted.
  ///
  /// Requires: blockBytes >= 3, room for a byte order mark.
  /// Errors: as SourceInput.
  explicit CsvBlocks(SourceFile file, std::int64_t blockBytes = kCsvBlockBytes);
  ~CsvBlocks();
  CsvBlocks(const CsvBlocks&) = delete;
  CsvBlocks& operator=(const CsvBlocks&) = delete;

  const SourceFile& file() const { return input_.file(); }

  /// The names of the columns, from the first record of the file, made distinct (distinctNames()).
  /// Called once, before `next`.
  ///
  /// Errors: "KALVEX:datastore:EmptyFile" when there is no record,
  ///         "KALVEX:datastore:OtherFormat" when the file isn't text at all, and as `next`.
  std::vector<std::string> readHeader();

  /// The next records, at least one and at most kCsvBlockRows; nothing after the last.
  ///
  /// Errors: "NotText", "RaggedRow", "UnterminatedQuote", "RecordTooLong",
  ///         "SourceChanged" or "FileNotReadable", each with "KALVEX:datastore:" before it.
  std::optional<CsvBlock> next();

 private:
  std::optional<CsvBlock> parse(std::int32_t columns, std::int32_t maxRows);
  std::optional<CsvBlock> nextOf(std::int32_t columns, std::int32_t maxRows);
  std::string_view unread() const { return {buffer_.data() + begin_, end_ - begin_}; }
  void refill();
  void checkText();
  [[noreturn]] void throwNotText(std::int64_t at, unsigned char byte) const;
  void skipByteOrderMark();
  void skipEmptyLines();
  void advance(std::size_t bytes);
  [[noreturn]] void throwEndlessRecord() const;

  SourceInput input_;
  std::size_t blockBytes_;
  arrow::csv::ParseOptions options_;
  std::vector<char> buffer_;
  std::size_t begin_ = 0;
  std::size_t end_ = 0;
  std::size_t checked_ = 0;      ///< bytes of the buffer known to be text
  std::int64_t offset_ = 0;      ///< of buffer_[begin_] in the file
  bool isAtEnd_ = false;         ///< the file has no more bytes
  bool mayHoldRecords_ = false;  ///< the unread bytes may hold a whole record
  std::int32_t columns_ = 0;
  std::int64_t nextRow_ = 0;
};

/// The line of the file in which byte `offset` stands, counted from 1: for messages.
///
/// Cost: reads the file up to there.
std::int64_t lineOfOffset(const SourceFile& file, std::int64_t offset);

}  // namespace kv::runtime

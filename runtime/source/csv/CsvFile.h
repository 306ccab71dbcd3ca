#pragma once

#include <arrow/csv/options.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "column/bytes.h"
#include "kv/runtime/CsvFormat.h"
#include "source/CompressedInput.h"
#include "source/FileTable.h"

namespace kv::runtime {

/// Bytes [begin, end) of a file.
struct ByteRange {
  std::int64_t begin = 0;
  std::int64_t end = 0;
};

/// A CSV file, and how it is written. Places in a compressed file are those in its text.
struct CsvFile {
  SourceFile file;
  CsvFormat format;  ///< its separator is known
  Compression compression = Compression::None;

  bool isCompressed() const { return compression != Compression::None; }
};

/// CSV files that form one table, and how they are written.
struct CsvTable {
  FileTable files;
  CsvFormat format;                         ///< its separator is known
  std::vector<Compression> compressions{};  ///< of each file; none if no file is compressed

  CsvFile at(std::size_t file) const {
    return {files.files[file], format,
            compressions.empty() ? Compression::None : compressions[file]};
  }
};

/// The format without anything unusual: commas, and a header.
CsvFormat usualFormat();

/// How a text in UTF-8 may begin.
inline constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";

/// How Arrow's parser splits such a file.
arrow::csv::ParseOptions parseOptions(const CsvFormat& format);

/// The separator of the first record: of comma, tab, semicolon and bar the one that gives it most
/// fields, outside quotes. One that gives the second record as many takes precedence, and one that
/// isn't in the second record at all doesn't count. Comma if there is none.
///
/// Errors: as for CsvText.
/// Cost:   reads the first 64 KiB.
char detectSeparator(const CsvFile& file);

/// "; fields are separated by semicolons" for messages; empty for commas.
std::string separatorNote(const CsvFormat& format);

/// What isn't usual in a format, for people; different for different formats. Empty for the usual.
std::string formatNote(const CsvFormat& format);

/// How the files of a table are written: its format and compressions.
///
/// Requires: the separator is known.
void writeFormat(ByteWriter& bytes, const CsvTable& table);

/// The table of files that are written as writeFormat() wrote.
/// Errors: "KALVEX:executor:BadBytes", also for a separator or pattern that can't be one.
CsvTable readFormat(ByteReader& bytes, FileTable files);

}  // namespace kv::runtime

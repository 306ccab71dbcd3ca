#pragma once

#include <arrow/csv/options.h>

#include <string>
#include <string_view>

#include "column/bytes.h"
#include "kv/runtime/CsvFormat.h"
#include "source/FileTable.h"

namespace kv::runtime {

/// A CSV file, and how it is written.
struct CsvFile {
  SourceFile file;
  CsvFormat format;  ///< its separator is known
};

/// CSV files that form one table, and how all of them are written.
struct CsvTable {
  FileTable files;
  CsvFormat format;  ///< its separator is known
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
/// Errors: as for SourceInput.
/// Cost:   reads the first 64 KiB.
char detectSeparator(const SourceFile& file);

/// "; fields are separated by semicolons" for messages; empty for commas.
std::string separatorNote(const CsvFormat& format);

/// What isn't usual in a format, for people; different for different formats. Empty for the usual.
std::string formatNote(const CsvFormat& format);

/// Requires: the separator is known.
void writeFormat(ByteWriter& bytes, const CsvFormat& format);

/// Reads what writeFormat() wrote.
/// Errors: "KALVEX:executor:BadBytes", also for a separator or pattern that can't be one.
CsvFormat readFormat(ByteReader& bytes);

}  // namespace kv::runtime

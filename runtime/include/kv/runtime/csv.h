#pragma once

#include <memory>
#include <string>
#include <vector>

#include "kv/runtime/files.h"

namespace kv::runtime {

/// Opens CSV files as one table.
///
/// Partitions: ranges of 32 MiB of a file, each moved to the beginnings of records. A record
/// belongs to the range in which it begins. A smaller file is one partition.
///
/// A file may be compressed with gzip, bzip2, zstd or lz4, which its first bytes show; it is one
/// partition. Rows and lines in errors are those of its text.
///
/// Each of `paths` is a file, a folder (its `*.csv`, `*.csv.gz`, ... files), or a pattern with `*`,
/// `?` and `[...]` (see expandPath()). All files have the same columns in the same order.
///
/// Format: UTF-8 with or without a byte order mark, fields separated by commas, tabs, semicolons or
/// bars, records ended by LF, CRLF or CR (optional for the last), a first record of column names. A
/// field in double quotes may contain separators, line ends and, doubled, quotes. Empty lines are
/// skipped. Of the separators, the one counts that gives the first record of the first file most
/// fields; one that gives the second record as many takes precedence. `format` sets what can't be
/// seen, or is seen wrongly.
///
/// Names: distinct. A second column `x` is named `x.2`, the next `x.3`; a third column without a
/// name is named `column 3`. A name that is in the header is never given to another column. Without
/// a header, the columns are `column_1`, `column_2`, ...
///
/// Types: a column is double if every field in the first block (1 MiB or 32,768 records) of the
/// first file is a number or missing, otherwise string; `types` sets others. If a column has no
/// value in that block, the next block or file with one decides, up to 256 MiB in total. A column
/// without any value there is read as double. A field that doesn't fit its type ends the reading
/// with an error that names the smallest type that would fit; no type changes while reading. In a
/// column of type `datetime(%d.%m.%Y)` moments are written by that pattern of strptime, with `%f`
/// for a fraction of a second; in one of type `datetime`, by ISO 8601.
///
/// Missing: an empty field, quoted or not, is missing. In a column of numbers or times, so are
/// `NA`, `NaN` and `null`, unless `format` has other markers, which count in all columns. A missing
/// value is NaN in a double or single column, a missing text in a string column, and an error in an
/// integer or logical one. A logical field is `0`, `1`, `true` or `false`, the words also written
/// `True`, `TRUE`, `False`, `FALSE`.
///
/// Errors: errors::StepError if a path leads to nothing, a file can't be read, isn't text, has no
///         header or other columns than the first, or `types` name a column or a type that doesn't
///         exist.
/// Cost:   reads the header of each file and the first block of the first. Further blocks and files
///         are read only while a column has no value and `types` don't fix it: up to 256 MiB where
///         one is empty throughout, a second or two.
std::unique_ptr<Datastore> openCsv(const std::vector<std::string>& paths,
                                   const std::vector<TypeOverride>& types = {},
                                   const CsvFormat& format = {});

}  // namespace kv::runtime

#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "kv/runtime/Datastore.h"

namespace kv::runtime {

/// Fixes the type of a column: what its user knows better than the first rows of the file.
struct TypeOverride {
  std::string column;
  std::string type;  ///< as elementTypeName() writes it
};

/// Reads `NAME=TYPE`; the last `=` parts the two, so a name may hold one.
///
/// Errors: DataError "KALVEX:datastore:BadTypeOverride" when there is no `=`.
TypeOverride parseTypeOverride(std::string_view text);

/// Opens CSV files as one table, a partition a file.
///
/// Each of `paths` is a file, a folder (its `*.csv` files), or a pattern with `*`, `?` and `[...]`
/// (see expandPaths()). All files have the same columns in the same order.
///
/// Format: UTF-8 with or without a byte order mark, fields parted by commas, records ended by LF,
/// CRLF or CR (the last needs none), a first record of column names. A field in double quotes may
/// hold commas, line ends and, doubled, quotes. Empty lines are skipped.
///
/// Names: distinct. A second column `x` is called `x.2`, the next `x.3`; a third column without a
/// name `column 3`. A name that the header holds is never given to another column.
///
/// Types: a column is double when every field in the first block (1 MiB or 32,768 records) of the
/// first file is a number or missing, and string otherwise; `types` fixes others. Where a column
/// has no value in that block, the next block or file with one decides, up to 256 MiB in all. A
/// column without any value there counts as double. What a type can't hold ends the reading with an
/// error that names the smallest type that would; no type changes while reading.
///
/// Missing: an empty field, quoted or not, is missing. In a numeric column `NA`, `NaN` and `null`
/// are, too. Missing is NaN in a double or single column, a missing text in a string column, and an
/// error in an integer or logical one. A logical field is `0`, `1`, `true` or `false`, the words
/// also written `True`, `TRUE`, `False`, `FALSE`.
///
/// Errors: DataError when a path leads to nothing, a file can't be read, isn't text, has no header
/// or
///         other columns than the first, or `types` name a column or a type that doesn't exist.
/// Cost:   reads the header of each file and the first block of the first. Further blocks and files
///         are read only while a column has no value and `types` don't fix it: up to 256 MiB where
///         one is empty throughout, a second or two.
std::unique_ptr<Datastore> openCsv(const std::vector<std::string>& paths,
                                   const std::vector<TypeOverride>& types = {});

}  // namespace kv::runtime

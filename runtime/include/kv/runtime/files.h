#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "kv/runtime/CsvFormat.h"
#include "kv/runtime/Datastore.h"

namespace kv::runtime {

/// Sets the type of a column, if the user knows better than the first rows of a CSV file.
struct TypeOverride {
  std::string column;
  std::string type;  ///< as elementTypeName() writes it, or `datetime(PATTERN)`, see openCsv()
};

/// Files to be opened as one table.
struct FileRequest {
  std::vector<std::string> paths;
  std::vector<TypeOverride> types{};
  CsvFormat csv{};  ///< only CSV files may have another than the default
};

/// Reads `NAME=TYPE`; the last `=` separates the two, so a name may contain one.
///
/// Errors: "KALVEX:datastore:BadTypeOverride" if there is no `=`.
TypeOverride parseTypeOverride(std::string_view text);

/// Opens files as one table, in the format that they have: see openCsv(), openParquet(), openIpc()
/// and openNpyTable().
///
/// Each path is a file, a folder (its files with an ending of one of the formats), or a pattern.
/// The format of a file follows from its ending or its first bytes; a file of no other format is
/// CSV.
///
/// Errors: "KALVEX:datastore:MixedFormats" for files of two formats, "KALVEX:datastore:FixedFormat"
///         if they aren't CSV and `request` says how CSV is written; those of the formats.
std::unique_ptr<Datastore> openFiles(const FileRequest& request);

}  // namespace kv::runtime

#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "kv/runtime/Datastore.h"

namespace kv::runtime {

/// Sets the type of a column, if the user knows better than the first rows of a CSV file.
struct TypeOverride {
  std::string column;
  std::string type;  ///< as elementTypeName() writes it
};

/// Reads `NAME=TYPE`; the last `=` separates the two, so a name may contain one.
///
/// Errors: "KALVEX:datastore:BadTypeOverride" if there is no `=`.
TypeOverride parseTypeOverride(std::string_view text);

/// Opens files as one table, in the format that they have: see openCsv() and openParquet().
///
/// Each of `paths` is a file, a folder (its `*.csv` and `*.parquet` files), or a pattern. A file is
/// Parquet if its name ends with `.parquet` or its content begins with `PAR1`, otherwise CSV.
///
/// Errors: "KALVEX:datastore:MixedFormats" for files of two formats; those of the formats.
std::unique_ptr<Datastore> openFiles(const std::vector<std::string>& paths,
                                     const std::vector<TypeOverride>& types = {});

}  // namespace kv::runtime

#pragma once

#include <memory>
#include <string>
#include <vector>

#include "kv/runtime/files.h"

namespace kv::runtime {

/// Opens Parquet files as one table.
///
/// Each of `paths` is a file, a folder (its `*.parquet` files), or a pattern with `*`, `?` and
/// `[...]` (see expandPath()). All files have the same columns of the same types, in the same
/// order.
///
/// Partitions: runs of row groups of one file that have up to 64 MiB together, uncompressed; a
/// larger row group is a partition of its own. A file has at least one, even without rows.
///
/// Names: as for openCsv().
///
/// Types: logicals, integers, floating numbers and texts are what they are in the file. Half floats
/// become single, decimals the nearest double, a column of nulls double. Columns of other types,
/// such as times, bytes and nested ones, can't be read; the other columns can. `types` may name the
/// types that columns have, but not change them.
///
/// Missing: a null is a missing value: NaN in a double or single column, otherwise a null.
///
/// Checksums of pages are verified where the file has them.
///
/// Errors: errors::StepError if a path leads to nothing, a file can't be read, isn't Parquet or has
///         other columns or types than the first, or `types` name a column, or another type than
///         the column has.
/// Cost:   reads the end of each file, once for all readers.
std::unique_ptr<Datastore> openParquet(const std::vector<std::string>& paths,
                                       const std::vector<TypeOverride>& types = {});

}  // namespace kv::runtime

#pragma once

#include <memory>
#include <string>
#include <vector>

#include "kv/runtime/files.h"

namespace kv::runtime {

/// Opens files in Arrow's IPC formats as one table: the file format, also called Feather (version
/// 2), and the stream format.
///
/// Each of `paths` is a file, a folder (its `*.arrow`, `*.feather`, `*.ipc` and `*.arrows` files),
/// or a pattern with `*`, `?` and `[...]` (see expandPath()). All files have the same columns of
/// the same types, in the same order.
///
/// Partitions: runs of record batches of one file that have up to 64 MiB together, as they are in
/// the file; a larger batch is a partition of its own. A stream is one partition, since its
/// dictionaries may change on the way. A file has at least one, even without rows.
///
/// Names, types and missing values: as for openParquet().
///
/// Errors: errors::StepError if a path leads to nothing, a file can't be read, isn't in one of the
///         formats, ends too early or has other columns or types than the first, or `types` name a
///         column, or another type than the column has.
/// Cost:   reads the header of each batch, once for all readers; a batch of the requested columns
///         is in memory while it is read.
std::unique_ptr<Datastore> openIpc(const std::vector<std::string>& paths,
                                   const std::vector<TypeOverride>& types = {});

}  // namespace kv::runtime

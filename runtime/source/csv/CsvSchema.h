#pragma once

#include <span>
#include <vector>

#include "kv/runtime/Datastore.h"
#include "kv/runtime/csv.h"
#include "source/FileTable.h"
#include "source/csv/CsvFile.h"

namespace kv::runtime {

/// Maximum number of bytes, over all files, that are searched for a value of a column that had none
/// so far: a second or two, since a file may be long and one of its columns empty throughout.
inline constexpr std::int64_t kInferenceBytes = 256 << 20;

/// The columns of CSV files that form one table: names from the header of the first file, types
/// from the fields unless `types` sets them (see openCsv()).
///
/// Result:   a column without a value in the first `inferenceBytes`, counted to the end of a block,
///           is undecided.
/// Requires: at least one file; all have one format.
/// Errors: "KALVEX:datastore:DifferentColumns" if the header of a file has other columns
///         than the first, or in another order; "KALVEX:datastore:UnknownColumn",
///         "KALVEX:datastore:UnknownType"; and as for CsvBlocks.
Schema readCsvSchema(std::span<const CsvFile> files, const std::vector<TypeOverride>& types,
                     std::int64_t inferenceBytes = kInferenceBytes);

/// The first rows of a file, at most `rows`, for people to look at; none if they can't be read:
/// reading the values raises the error.
Chunk firstCsvRows(const CsvFile& file, const Schema& schema, std::int64_t rows);

}  // namespace kv::runtime

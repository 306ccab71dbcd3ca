#pragma once

#include <span>
#include <string>
#include <vector>

#include "kv/runtime/Datastore.h"
#include "kv/runtime/csv.h"
#include "source/SourceFile.h"

namespace kv::runtime {

/// Bytes of records, all files together, in which a column without a value so far is looked for
/// one: a second or two, since a file may be long and a column of it empty throughout.
inline constexpr std::int64_t kInferenceBytes = 256 << 20;

/// The columns of CSV files that make one table: names from the header of the first, types from the
/// fields except where `types` fix them (see openCsv()).
///
/// Result:   a column without a value in the first `inferenceBytes`, counted to the end of a block,
///           is undecided.
/// Requires: at least one file.
/// Errors: "KALVEX:datastore:DifferentColumns" when the header of a file has other
/// columns
///         than the first, or has them in another order; "KALVEX:datastore:UnknownColumn",
///         "KALVEX:datastore:UnknownType"; and as CsvBlocks.
Schema readCsvSchema(std::span<const SourceFile> files, const std::vector<TypeOverride>& types,
                     std::int64_t inferenceBytes = kInferenceBytes);

/// Errors: "KALVEX:datastore:DifferentColumns" unless the columns of `path` are those of `first`.
void requireSameColumns(const std::string& path, const std::vector<std::string>& names,
                        const std::string& first, const std::vector<std::string>& expected);

/// The place in `schema` of the column called `name`.
///
/// Errors: "KALVEX:datastore:UnknownColumn", with the columns there are.
std::size_t columnIndex(const Schema& schema, const std::string& name);

/// The names of the columns, in their order.
std::vector<std::string> columnNames(const Schema& schema);

}  // namespace kv::runtime

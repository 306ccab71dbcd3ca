#pragma once

#include <string>
#include <vector>

#include "datastore/SourceFile.h"
#include "kv/runtime/Datastore.h"
#include "kv/runtime/csv.h"

namespace kv::runtime {

/// The columns of a CSV file: names from its header, types from its first block except where
/// `types` fix them.
///
/// Errors: DataError "KALVEX:datastore:DuplicateColumn", "KALVEX:datastore:UnknownColumn",
///         "KALVEX:datastore:UnknownType", and as CsvBlocks.
Schema readCsvSchema(const SourceFile& file, const std::vector<TypeOverride>& types);

/// Errors: DataError "KALVEX:datastore:DifferentColumns" when the header of `file` has other
///         columns than `schema`, which `first` has, or has them in another order; and as
///         CsvBlocks.
void throwIfColumnsDiffer(const SourceFile& file, const SourceFile& first, const Schema& schema);

/// Where in `schema` the column called `name` stands.
///
/// Errors: DataError "KALVEX:datastore:UnknownColumn", with the columns there are.
std::size_t columnIndex(const Schema& schema, const std::string& name);

/// The names of the columns, in their order.
std::vector<std::string> columnNames(const Schema& schema);

}  // namespace kv::runtime

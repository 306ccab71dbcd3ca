#pragma once

#include "kv/host/values.h"
#include "source/csv/CsvDatastore.h"

/// What of a table of CSV files is saved with an array that reads it: a description, no rows.
namespace kv::runtime {

/// A 1-by-1 structure with the fields "Name", "Paths", "AbsolutePaths", "Bytes", "Modified", one
/// element a file, "ColumnNames" and "ColumnTypes".
host::Value describeCsv(const CsvDatastore& datastore);

/// The table that `describeCsv` described. Opens nothing: each file is looked at when it is read.
///
/// Errors: "KALVEX:datastore:BadDescription" with what is wrong.
CsvDatastore::Table csvFromDescription(const kxArray* description);

}  // namespace kv::runtime

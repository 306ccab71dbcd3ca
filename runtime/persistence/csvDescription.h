#pragma once

#include "kv/host/values.h"
#include "source/csv/CsvFile.h"

/// What is saved of a table of CSV files with an array that reads it: a description, no rows.
namespace kv::runtime {

/// A 1-by-1 structure with the fields "Name", "Paths", "AbsolutePaths", "Bytes", "Modified", one
/// element per file, "ColumnNames" and "ColumnTypes"; "Format", bytes, if the files aren't written
/// in the usual way.
host::Value describeCsv(const CsvTable& table);

/// The table of a description made by `describeCsv`. Opens nothing: files are checked when read.
///
/// Errors: "KALVEX:datastore:BadDescription" with the fault.
CsvTable csvFromDescription(const kxArray* description);

}  // namespace kv::runtime

#pragma once

#include <memory>

#include "kv/host/values.h"
#include "source/parquet/ParquetDatastore.h"

/// What is saved of a table of Parquet files with an array that reads it: a description, no rows.
namespace kv::runtime {

/// A uint8 column: the bytes of ParquetDatastore::describeForSave().
host::Value describeParquet(const ParquetDatastore& datastore);

/// The table of a description made by `describeParquet`. Opens nothing: files are checked when
/// read.
///
/// Errors: "KALVEX:datastore:BadDescription".
std::shared_ptr<const ParquetDatastore> parquetFromDescription(const kxArray* description);

}  // namespace kv::runtime

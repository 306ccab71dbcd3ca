#pragma once

#include <memory>
#include <string>
#include <string_view>

#include "column/bytes.h"
#include "source/csv/CsvDatastore.h"

/// Tables of CSV files as bytes.
namespace kv::runtime {

inline constexpr std::string_view kCsvFormat = "csv";

std::string describeTable(const CsvDatastore::Table& table);

/// Reads what follows the name of the format.
/// Errors: "KALVEX:executor:BadBytes".
std::shared_ptr<const Datastore> openDescribedCsv(ByteReader& description);

}  // namespace kv::runtime

#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "kv/runtime/Datastore.h"
#include "source/csv/CsvBlocks.h"
#include "source/csv/CsvColumn.h"

namespace kv::runtime {

/// A field of a block that can't be converted.
struct FaultyField {
  FieldFault fault = FieldFault::None;
  std::size_t column = 0;       ///< its position among the columns that are converted
  std::int64_t row = 0;         ///< of its record in the block, counted from 0
  std::int64_t byteOffset = 0;  ///< of its record in the file
  std::string text;
};

/// The field of the first record that has a fault, and of its fields the one whose column comes
/// first. Reads the block again record by record, which keeps the reading of good blocks fast.
///
/// `format`:  of the file to which the block belongs.
/// Requires: converting `block` by one of `columns` has a fault.
FaultyField firstFault(const CsvBlock& block, const std::vector<CsvColumn>& columns,
                       const CsvFormat& format);

/// Reports a field that `firstFault` has found.
///
/// `info`:    of its column.
/// `rangeBegin`: the byte of the file where the range begins to which the block belongs.
/// Errors: always "KALVEX:datastore:BadField", "KALVEX:datastore:MissingField" or
///         "KALVEX:datastore:NumberTooLarge".
/// Cost:   reads the file up to the field, to count rows and lines.
[[noreturn]] void throwFieldError(const CsvFile& file, std::int64_t rangeBegin,
                                  const CsvBlock& block, const FaultyField& field,
                                  const CsvColumn& column, const ColumnInfo& info);

}  // namespace kv::runtime

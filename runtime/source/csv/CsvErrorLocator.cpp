#include "source/csv/CsvErrorLocator.h"

#include <arrow/csv/parser.h>

#include <algorithm>
#include <array>
#include <stdexcept>
#include <string_view>
#include <vector>

#include "column/ThrowingPool.h"
#include "column/allocate.h"
#include "column/pool.h"
#include "kv/errors/StepError.h"
#include "kv/errors/shownText.h"
#include "source/csv/CsvTypeAdvice.h"

namespace kv::runtime {

namespace {

/// Skips the empty lines before a record, so that the record's own line is reported.
std::size_t emptyLines(std::string_view records) {
  return std::min(records.find_first_not_of("\r\n"), records.size());
}

const char* idOf(FieldFault fault) {
  switch (fault) {
    case FieldFault::Unfit:
      return "KALVEX:datastore:BadField";
    case FieldFault::Missing:
      return "KALVEX:datastore:MissingField";
    case FieldFault::TooLarge:
      return "KALVEX:datastore:NumberTooLarge";
    case FieldFault::None:
      break;
  }
  throw std::logic_error("A field without a fault has no error.");
}

/// Why the column has the type that the field doesn't fit, if that isn't obvious.
std::string originOf(const ColumnInfo& info, const CsvFormat& format) {
  if (const auto pattern = format.patterns.find(info.name); pattern != format.patterns.end()) {
    return " by the pattern " + pattern->second;
  }
  return info.isUndecided
             ? " because its first values come after those from which types are inferred"
             : "";
}

}  // namespace

FaultyField firstFault(const CsvBlock& block, const std::vector<CsvColumn>& columns,
                       const CsvFormat& format) {
  const arrow::csv::ParseOptions options = parseOptions(format);
  ThrowingPool pool(*currentPool());
  std::size_t at = 0;
  for (std::int64_t row = 0; row < block.rows(); ++row) {
    at += emptyLines(block.records.substr(at));
    arrow::csv::BlockParser record(&pool, options, block.fields->num_cols(),
                                   /*first_row=*/row,
                                   /*max_num_rows=*/1);
    std::uint32_t bytes = 0;
    const arrow::Status status = record.Parse(block.records.substr(at), &bytes);
    throwIfOutOfMemory(status);
    if (!status.ok()) {
      break;
    }
    for (std::size_t i = 0; i < columns.size(); ++i) {
      if (const FieldFault fault = columns[i].convert(record).fault; fault != FieldFault::None) {
        const auto byteOffset = block.byteOffset + static_cast<std::int64_t>(at);
        return {fault, i, row, byteOffset, columns[i].lastText(record)};
      }
    }
    at += bytes;
  }
  throw std::logic_error("A block of records has a fault that none of its records has.");
}

void throwFieldError(const CsvFile& file, std::int64_t rangeBegin, const CsvBlock& block,
                     const FaultyField& field, const CsvColumn& column, const ColumnInfo& info) {
  const std::int64_t row = recordsBefore(file, rangeBegin) + block.firstRow + field.row + 1;
  const std::int64_t line = lineOfOffset(file, field.byteOffset);
  const std::string text = errors::shownText(field.text);
  const std::string type(elementTypeName(info.type));
  const std::string wider(elementTypeName(typeThatHolds(block, column)));
  errors::raiseStep(idOf(field.fault), {file.file.path, std::to_string(row), std::to_string(line),
                                        info.name, text, type, wider, originOf(info, file.format)});
}

}  // namespace kv::runtime

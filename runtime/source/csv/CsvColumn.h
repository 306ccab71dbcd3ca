#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "kv/runtime/CsvFormat.h"
#include "kv/runtime/Datastore.h"
#include "source/csv/MomentPattern.h"

namespace arrow::csv {
class BlockParser;
class Converter;
struct ConvertOptions;
}  // namespace arrow::csv

namespace kv::runtime {

/// Possible faults of a field of a CSV file.
enum class FieldFault {
  None,
  Unfit,     ///< isn't a value of its column's type
  Missing,   ///< is missing in a column whose type has no missing value
  TooLarge,  ///< is a whole number beyond 2^53, which a double can't hold exactly
};

/// A column made from the fields of a block, or the fault of one of them.
struct ConvertedColumn {
  std::optional<Column> column;  ///< empty if and only if there is a fault
  FieldFault fault = FieldFault::None;
  bool hasOffsets = false;  ///< some moments have an offset from UTC
};

/// Converts the text of one column of a CSV file to values, with Arrow's converter for the type;
/// times as in times.h, or by a pattern.
///
/// Threads: one at a time.
class CsvColumn {
 public:
  /// For fields of column `index`, counted from 0, of a file in this format.
  CsvColumn(std::int32_t index, const ColumnInfo& info, const CsvFormat& format);

  /// The same column, read as another type.
  CsvColumn as(ElementType type) const;

  std::int32_t index() const { return index_; }
  ElementType type() const { return type_; }

  /// The values of the column in `block`. A fault is found by converting rows one by one.
  ConvertedColumn convert(const arrow::csv::BlockParser& block) const;

  /// The text of the column in the last row of `block`, without quotes.
  std::string lastText(const arrow::csv::BlockParser& block) const;

 private:
  CsvColumn(std::int32_t index, ElementType type, std::optional<std::vector<std::string>> missing);
  std::optional<ParsedMoment> momentIn(std::string_view text) const;
  ConvertedColumn convertTimes(const arrow::csv::BlockParser& block) const;
  bool holdsUnsafeWhole(const arrow::csv::BlockParser& block) const;

  std::int32_t index_;
  ElementType type_;
  std::optional<std::vector<std::string>> missing_;  ///< markers that the user set
  std::optional<MomentPattern> pattern_;
  std::shared_ptr<const arrow::csv::ConvertOptions> options_;  ///< the converter refers to them
  std::shared_ptr<arrow::csv::Converter> converter_;           ///< null for times
};

}  // namespace kv::runtime

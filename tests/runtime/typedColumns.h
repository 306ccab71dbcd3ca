#pragma once

#include <arrow/type.h>

#include <cstdint>
#include <limits>
#include <memory>
#include <string>
#include <vector>

#include "column/elementTypes.h"
#include "runtime/readAll.h"

namespace kv::runtime::test {

/// The numbers of a column of any numeric type; NaN for nulls.
inline std::vector<double> allNumbers(const Datastore& source, const std::string& column) {
  std::vector<double> all;
  readAll(source, {column}, [&all](const Chunk& chunk) {
    const Column& values = chunk.columns[0];
    visitNumeric(values.type(), [&]<class T>() {
      for (std::int64_t row = 0; row < values.rows(); ++row) {
        const T value = values.values<T>()[static_cast<std::size_t>(row)];
        all.push_back(values.isNull(row) ? std::numeric_limits<double>::quiet_NaN()
                                         : static_cast<double>(value));
      }
    });
  });
  return all;
}

/// A column of Arrow, and how it is read.
struct TypedColumn {
  std::shared_ptr<arrow::DataType> type;
  const char* json;
  ElementType read;
  std::string inParquet;  ///< the column's note in a Parquet file
  std::vector<double> values;

  /// The column's note where it is in memory.
  std::string inMemory() const { return inParquet.empty() ? "" : type->ToString(); }
};

/// Columns of all types of numbers and times, with a null in the third row or the second.
inline std::vector<TypedColumn> typedColumns() {
  using enum ElementType;
  const char* const whole = "[0, 1, null, 100]";
  constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
  const std::vector<double> wholes{0, 1, kNaN, 100};
  const char* const exact = R"(["0.10", null, "-12345678901234567.89", "0.30"])";
  constexpr double kNone = std::numeric_limits<std::int64_t>::min();
  constexpr double kDay = 86'400e6;
  const std::vector<double> exacts{0.10, kNaN, -12345678901234567.89, 0.30};
  return {
      {arrow::boolean(), "[true, false, null, true]", Logical, "", {1, 0, kNaN, 1}},
      {arrow::int8(), whole, Int8, "", wholes},
      {arrow::uint16(), whole, UInt16, "", wholes},
      {arrow::uint32(), whole, UInt32, "", wholes},
      {arrow::int64(), whole, Int64, "", wholes},
      {arrow::uint64(), whole, UInt64, "", wholes},
      {arrow::float64(), "[0.5, null, -2, 1e300]", Double, "", {0.5, kNaN, -2, 1e300}},
      {arrow::float32(), "[0.5, null, -2, 8]", Single, "", {0.5, kNaN, -2, 8}},
      {arrow::float16(), "[0.5, null, -2, 65504]", Single, "halffloat", {0.5, kNaN, -2, 65504}},
      {arrow::decimal128(19, 2), exact, Double, "decimal128(19, 2)", exacts},
      {arrow::decimal256(40, 2), exact, Double, "decimal256(40, 2)", exacts},
      {arrow::timestamp(arrow::TimeUnit::SECOND),
       "[1, null, -2, 3]",
       DateTime,
       "timestamp[ms]",
       {1e6, kNone, -2e6, 3e6}},
      {arrow::timestamp(arrow::TimeUnit::MICRO),
       "[1, null, -2, 3]",
       DateTime,
       "",
       {1, kNone, -2, 3}},
      {arrow::timestamp(arrow::TimeUnit::NANO, "Europe/Berlin"),
       "[1999, null, -1, 3000]",
       DateTime,
       "timestamp[ns, tz=Europe/Berlin]",
       {1, kNone, -1, 3}},
      {arrow::date32(),
       "[1, null, -1, 20000]",
       DateTime,
       "date32[day]",
       {kDay, kNone, -kDay, 20000 * kDay}},
      {arrow::duration(arrow::TimeUnit::MILLI),
       "[1, null, -2, 3]",
       Duration,
       "duration[ms]",
       {1e3, kNone, -2e3, 3e3}},
      {arrow::null(), "[null, null, null, null]", Double, "null", {kNaN, kNaN, kNaN, kNaN}},
  };
}

/// The types of texts.
inline std::vector<std::shared_ptr<arrow::DataType>> textTypes() {
  return {arrow::utf8(), arrow::large_utf8(), arrow::utf8_view(),
          arrow::dictionary(arrow::int8(), arrow::utf8()),
          arrow::dictionary(arrow::int32(), arrow::large_utf8())};
}

}  // namespace kv::runtime::test

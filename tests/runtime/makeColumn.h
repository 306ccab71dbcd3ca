#pragma once

#include <arrow/array/builder_binary.h>
#include <arrow/array/data.h>
#include <arrow/buffer.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "column/Validity.h"
#include "column/elementTypes.h"
#include "kv/runtime/Column.h"
#include "kv/runtime/times.h"

namespace kv::runtime {

inline constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
inline constexpr double kInf = std::numeric_limits<double>::infinity();

inline bool isMissing(double value) { return std::isnan(value); }

template <class T>
Column columnOf(ElementType type, const std::vector<T>& values) {
  auto buffer = arrow::Buffer::FromVector(values);
  return Column(type, static_cast<std::int64_t>(values.size()), std::move(buffer));
}

inline Column doubles(const std::vector<double>& values) {
  return columnOf(ElementType::Double, values);
}

inline Column logicals(const std::vector<std::uint8_t>& values) {
  return columnOf(ElementType::Logical, values);
}

/// Texts; an empty optional is a missing text.
inline Column texts(const std::vector<std::optional<std::string>>& values) {
  arrow::StringBuilder builder;
  for (const auto& value : values) {
    EXPECT_TRUE((value ? builder.Append(*value) : builder.AppendNull()).ok());
  }
  return Column(ElementType::String, builder.Finish().ValueOrDie()->data());
}

/// A column of numbers or times of any type, made from doubles that fit it; NaN is missing.
inline Column numbers(ElementType type, const std::vector<double>& values) {
  return visitNumeric(type, [&]<class T>() {
    const bool isNullable = isWhole(type) && std::ranges::any_of(values, isMissing);
    std::vector<T> converted;
    for (const double value : values) {
      const T marked = isTime(type) ? static_cast<T>(kNaT) : T{1};
      converted.push_back(!isFloating(type) && isMissing(value) ? marked : static_cast<T>(value));
    }
    const Column column = columnOf(type, converted);
    return !isNullable ? column
                       : nullableColumn(type, column.rows(), column.data()->buffers[1],
                                        nullBits(column.rows(), [&](std::int64_t row) {
                                          return isMissing(values[static_cast<std::size_t>(row)]);
                                        }));
  });
}

/// The elements as doubles; missing ones as NaN.
inline std::vector<double> numbersOf(const Column& column) {
  return visitNumeric(column.type(), [&]<class T>() {
    std::vector<double> values;
    for (const T value : column.values<T>()) {
      const bool isNull = column.isNull(static_cast<std::int64_t>(values.size())) ||
                          (isTime(column.type()) && value == static_cast<T>(kNaT));
      values.push_back(isNull ? kNaN : static_cast<double>(value));
    }
    return values;
  });
}

inline std::vector<std::optional<std::string>> textsOf(const Column& column) {
  std::vector<std::optional<std::string>> values;
  for (std::int64_t row = 0; row < column.rows(); ++row) {
    if (column.isNull(row)) {
      values.emplace_back();
    } else {
      values.emplace_back(column.text(row));
    }
  }
  return values;
}

/// True for the same number with the same sign, also of zeros; all NaNs are the same.
inline bool isSame(double a, double b) {
  if (std::isnan(a) || std::isnan(b)) {
    return std::isnan(a) && std::isnan(b);
  }
  return a == b && std::signbit(a) == std::signbit(b);
}

}  // namespace kv::runtime

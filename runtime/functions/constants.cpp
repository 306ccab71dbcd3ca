#include "functions/constants.h"

#include <fmt/format.h>

#include <concepts>
#include <cstdint>
#include <utility>

#include "functions/allocate.h"
#include "functions/elementTypes.h"

namespace kv::runtime {

namespace {

double numberOf(const Column& column) {
  if (column.type() == ElementType::Double) return column.values<double>()[0];
  if (column.type() == ElementType::Logical) return column.values<std::uint8_t>()[0];
  return static_cast<double>(column.values<std::int64_t>()[0]);
}

/// Requires: a double is a whole number of at most 2^53.
std::int64_t wholeOf(const Column& column) {
  if (column.type() == ElementType::Int64) return column.values<std::int64_t>()[0];
  return static_cast<std::int64_t>(numberOf(column));
}

}  // namespace

bool constantFits(const Operand& operand, ElementType type) {
  if (!isInteger(type)) return true;
  const std::int64_t whole = wholeOf(operand.column);
  return visitNumeric(type, [&]<class T>() {
    if constexpr (std::integral<T>)
      return std::in_range<T>(whole);
    else
      return true;
  });
}

Operand constantAs(const Operand& operand, ElementType type) {
  const Column& column = operand.column;
  if (type == ElementType::Logical) {
    const std::uint8_t isTrue = numberOf(column) != 0;
    return {scalarColumn(type, isTrue), true, false};
  }
  return visitNumeric(type, [&]<class T>() -> Operand {
    if constexpr (std::integral<T>) {
      return {scalarColumn(type, static_cast<T>(wholeOf(column))), true, false};
    } else {
      return {scalarColumn(type, static_cast<T>(numberOf(column))), true, false};
    }
  });
}

std::string constantText(const Operand& operand) {
  return fmt::format("{}", wholeOf(operand.column));
}

}  // namespace kv::runtime

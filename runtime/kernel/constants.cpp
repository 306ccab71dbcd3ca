// A constant that the user wrote has no type of its own: it takes the type with which it is
// combined, as Python's scalars do in NumPy. This file decides that type, refuses constants that
// don't fit it, and keeps comparisons of integers with large or fractional constants exact.
// Operations on constants only give a constant again, so that (1 + 1) adapts like 2.

#include "kernel/constants.h"

#include <fmt/format.h>

#include <algorithm>
#include <boost/container/small_vector.hpp>
#include <cassert>
#include <cmath>
#include <concepts>
#include <cstdint>
#include <limits>
#include <string>
#include <type_traits>
#include <utility>

#include "column/Validity.h"
#include "column/allocate.h"
#include "column/elementTypes.h"
#include "kv/errors/StepError.h"
#include "kv/errors/shownText.h"
#include "kv/runtime/times.h"

namespace kv::runtime {

namespace {

template <class T>
T valueIn(const RecordedOperand& number) {
  T value;
  std::memcpy(&value, &number.bits, sizeof(value));
  return value;
}

bool isWeakNumber(const RecordedOperand& operand) {
  return operand.isWeak && operand.type != ElementType::String;
}

ColumnOperand scalarOf(ElementType type, auto value, bool isWeak = false) {
  return {scalarColumn(type, value), true, isWeak};
}

ColumnOperand scalarOf(const RecordedOperand& number) {
  return visitNumeric(number.type, [&]<class T>() {
    return scalarOf(number.type, valueIn<T>(number), number.isWeak);
  });
}

/// Calls `visit(value)` with a weak number: std::uint8_t, std::int64_t, std::uint64_t or double.
auto visitConstant(const RecordedOperand& number, auto&& visit) {
  switch (number.type) {
    case ElementType::Int64:
      return visit(valueIn<std::int64_t>(number));
    case ElementType::UInt64:
      return visit(valueIn<std::uint64_t>(number));
    case ElementType::Double:
      return visit(valueIn<double>(number));
    default:
      return visit(valueIn<std::uint8_t>(number));
  }
}

/// True if `value` can be an element of type `type` without a change, except for rounding to a
/// floating type.
template <class Value>
bool fits(Value value, ElementType type) {
  if (!isInteger(type)) {
    return true;
  }
  return visitNumeric(type, [&]<class T>() {
    if constexpr (std::integral<T> && std::integral<Value>) {
      return std::in_range<T>(value);
    } else {
      return false;
    }
  });
}

std::string textOf(const RecordedOperand& constant) {
  return visitConstant(constant, [](auto value) { return fmt::format("{}", value); });
}

/// Refuses a whole number that isn't exact as a double.
template <class Value>
void requireExact(Value whole) {
  if constexpr (std::integral<Value>) {
    constexpr double kBeyond = 18446744073709551616.0;  // 2^64: converting it back is undefined
    const auto nearest = static_cast<double>(whole);
    using Wide = std::conditional_t<std::is_signed_v<Value>, std::int64_t, std::uint64_t>;
    constexpr double kLimit = std::is_signed_v<Value> ? kBeyond / 2 : kBeyond;
    if (nearest < kLimit && static_cast<Wide>(nearest) == static_cast<Wide>(whole)) {
      return;
    }
    errors::raiseStep("KALVEX:array:NotExact",
                      {fmt::format("{}", whole), fmt::format("{}", nearest)});
  }
}

[[noreturn]] void raiseNegativePower(const ElementFunction& function, auto exponent) {
  errors::raiseStep("KALVEX:function:NegativePower",
                    {std::string(function.name), fmt::format("{}", exponent)});
}

void refuseNegativePower(const ElementFunction& function, const RecordedOperand& exponent) {
  visitNumeric(exponent.type, [&]<class T>() {
    if constexpr (std::is_signed_v<T> && std::integral<T>) {
      if (valueIn<T>(exponent) < 0) {
        raiseNegativePower(function, valueIn<T>(exponent));
      }
    }
  });
}

/// The constant as a number of type `type`, no longer weak.
///
/// Errors: "KALVEX:array:NotExact".
RecordedOperand constantAs(const RecordedOperand& constant, ElementType type) {
  return visitConstant(constant, [&](auto value) {
    if (type == ElementType::Logical) {
      return numberOf(type, static_cast<std::uint8_t>(value != 0));
    }
    if (isFloating(type)) {
      requireExact(value);
    }
    return visitNumeric(type, [&]<class T>() { return numberOf(type, static_cast<T>(value)); });
  });
}

/// A constant that is beyond all integers.
RecordedOperand beyondAll(const RecordedOperand& constant) {
  constexpr double kInfinity = std::numeric_limits<double>::infinity();
  const bool isBelow = visitConstant(constant, [](auto value) { return value < 0; });
  return numberOf(ElementType::Double, isBelow ? -kInfinity : kInfinity, true);
}

/// A double with a whole value as an integer, so that it is compared with integers exactly.
RecordedOperand asWhole(const RecordedOperand& constant, bool meetsIntegers) {
  if (constant.type != ElementType::Double) {
    return constant;
  }
  const auto value = valueIn<double>(constant);
  if (std::trunc(value) != value) {
    return constant;
  }
  if (value >= -0x1p63 && value < 0x1p63) {
    return numberOf(ElementType::Int64, static_cast<std::int64_t>(value), true);
  }
  if (value >= 0 && value < 0x1p64) {
    return numberOf(ElementType::UInt64, static_cast<std::uint64_t>(value), true);
  }
  return meetsIntegers ? beyondAll(constant) : constant;
}

/// The moment or duration that a text means.
/// Errors: "KALVEX:function:BadTime".
ColumnOperand timeOf(const ElementFunction& function, std::string_view text) {
  if (looksLikeDuration(text)) {
    if (const auto duration = parseDuration(text)) {
      return scalarOf(ElementType::Duration, *duration);
    }
  } else if (const auto moment = parseMoment(text)) {
    return scalarOf(ElementType::DateTime, moment->microseconds);
  }
  errors::raiseStep("KALVEX:function:BadTime",
                    {std::string(function.name), errors::shownText(text)});
}

/// Constants that are combined with times: texts become times, and numbers keep their types.
void adaptToTimes(const ElementFunction& function, std::vector<ColumnOperand>& inputs) {
  for (ColumnOperand& input : inputs) {
    const bool isTimeText = input.isWeak && input.column.type() == ElementType::String;
    if (isTimeText) {
      input = timeOf(function, input.column.text(0));
    }
    input.isWeak = false;
  }
}

bool isFloatingColumn(const RecordedOperand& input) {
  return !input.isWeak && isFloating(input.type);
}

RecordedOperand adapt(const ElementFunction& function, const RecordedOperand& constant,
                      ElementType compute) {
  if (visitConstant(constant, [&](auto value) { return fits(value, compute); })) {
    return constantAs(constant, compute);
  }
  if (function.rule == TypeRule::Comparison) {
    return beyondAll(constant);
  }
  const std::string type(elementTypeName(compute));
  errors::raiseStep("KALVEX:function:OutOfRange",
                    {std::string(function.name), textOf(constant), type});
}

ElementType computingType(const ElementFunction& function,
                          std::span<const RecordedOperand> inputs) {
  boost::container::small_vector<OperandType, 3> types;
  for (const RecordedOperand& input : inputs) {
    types.push_back({input.type, isWeakNumber(input)});
  }
  return resolve(function, {types.data(), types.size()}).compute;
}

/// True if logicals count as numbers, since the result would otherwise be of a small type.
bool computesInNumbers(TypeRule rule) {
  return rule == TypeRule::Floating || rule == TypeRule::Counting || rule == TypeRule::Power;
}

/// True if whole numbers give a whole number whenever the result is one.
bool keepsWholes(TypeRule rule) {
  return rule == TypeRule::Promoted || rule == TypeRule::Counting || rule == TypeRule::Power ||
         rule == TypeRule::Choice;
}

/// A numeric constant in the form in which constants are combined.
ColumnOperand foldingInput(const ElementFunction& function, const ColumnOperand& constant) {
  const ElementType type = constant.column.type();
  const bool stays = type == ElementType::String ||
                     (type == ElementType::Logical && !computesInNumbers(function.rule));
  return stays ? ColumnOperand{constant.column, true, false}
               : scalarOf(constantAs(numberOf(constant), ElementType::Double));
}

/// True for a double that can be written as an integer; false for -0.
bool isWhole(double value) {
  const bool isNegativeZero = value == 0 && std::signbit(value);
  return std::trunc(value) == value && std::abs(value) <= kMaxExactWhole && !isNegativeZero;
}

}  // namespace

RecordedOperand numberOf(const ColumnOperand& scalar) {
  const ElementType type = scalar.column.type();
  return visitNumeric(
      type, [&]<class T>() { return numberOf(type, scalar.column.values<T>()[0], scalar.isWeak); });
}

void refuseNegativePowers(const ElementFunction& function, const Column& exponents) {
  visitNumeric(exponents.type(), [&]<class T>() {
    if constexpr (std::is_signed_v<T> && std::integral<T>) {
      const auto values = exponents.values<T>();
      const Validity validity(exponents);
      const auto isNegative = [&](const T& value) {
        return value < 0 && !validity.isNull(&value - values.data());
      };
      const auto found = std::ranges::find_if(values, isNegative);
      if (found != values.end()) {
        raiseNegativePower(function, *found);
      }
    }
  });
}

void adaptNumbers(const ElementFunction& function, std::span<RecordedOperand> inputs) {
  if (std::ranges::none_of(inputs, isWeakNumber)) {
    return;
  }
  const bool compares = function.rule == TypeRule::Comparison;
  const bool meetsIntegers = std::ranges::none_of(inputs, isFloatingColumn);
  for (RecordedOperand& input : inputs) {
    if (compares && isWeakNumber(input)) {
      input = asWhole(input, meetsIntegers);
    }
  }
  const ElementType compute = computingType(function, inputs);
  const std::size_t first = function.rule == TypeRule::Choice ? 1 : 0;  // a condition is logical
  for (std::size_t i = first; i < inputs.size(); ++i) {
    if (!isWeakNumber(inputs[i])) {
      continue;
    }
    inputs[i] = adapt(function, inputs[i], compute);
    const bool isExponent = function.rule == TypeRule::Power && i == 1;
    if (isExponent) {
      refuseNegativePower(function, inputs[i]);
    }
  }
  for (RecordedOperand& input : inputs) {
    input.isWeak = false;
  }
}

std::vector<ColumnOperand> adaptConstants(const ElementFunction& function,
                                          std::span<const ColumnOperand> inputs) {
  std::vector<ColumnOperand> adapted(inputs.begin(), inputs.end());
  if (std::ranges::any_of(inputs,
                          [](const ColumnOperand& input) { return isTime(input.column.type()); })) {
    adaptToTimes(function, adapted);
    return adapted;
  }
  boost::container::small_vector<RecordedOperand, 3> operands;
  for (const ColumnOperand& input : inputs) {
    const RecordedOperand type{input.column.type(), input.isWeak};
    operands.push_back(isWeakNumber(type) ? numberOf(input) : type);
  }
  if (std::ranges::none_of(operands, isWeakNumber)) {
    return adapted;
  }
  adaptNumbers(function, {operands.data(), operands.size()});
  for (std::size_t i = 0; i < adapted.size(); ++i) {
    const bool isNumber = inputs[i].isWeak && inputs[i].column.type() != ElementType::String;
    if (isNumber) {
      adapted[i] = scalarOf(operands[i]);
    }
    adapted[i].isWeak = false;
  }
  return adapted;
}

ColumnOperand foldConstants(const ElementFunction& function,
                            std::span<const ColumnOperand> inputs) {
  assert(std::ranges::all_of(inputs, &ColumnOperand::isWeak));
  std::vector<ColumnOperand> numbers;
  bool areWhole = keepsWholes(function.rule);
  for (const ColumnOperand& input : inputs) {
    areWhole = areWhole && input.column.type() != ElementType::Double;
    numbers.push_back(foldingInput(function, input));
  }
  const Column result = evaluate(function, numbers, 1);
  if (result.type() != ElementType::Double) {
    return {result, true, true};
  }
  const double value = result.values<double>()[0];
  if (!areWhole || !isWhole(value)) {
    return {result, true, true};
  }
  return scalarOf(ElementType::Int64, static_cast<std::int64_t>(value), true);
}

}  // namespace kv::runtime

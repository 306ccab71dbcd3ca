// The result type of each element function, as in NumPy. Constants that the user wrote are weak:
// they raise the kind of the common type (logical, integer, floating) but not its width.

#include <fmt/format.h>

#include <algorithm>
#include <cassert>
#include <optional>
#include <string>

#include "column/elementTypes.h"
#include "kernel/blockLoops.h"
#include "kernel/timeRules.h"
#include "kv/errors/StepError.h"
#include "kv/runtime/ElementFunctions.h"

namespace kv::runtime {

namespace {

/// The kinds of numbers; each includes the ones before it.
enum class Kind : std::uint8_t { Logical, Integer, Floating };

Kind kindOf(ElementType type) {
  if (isFloating(type)) {
    return Kind::Floating;
  }
  return type == ElementType::Logical ? Kind::Logical : Kind::Integer;
}

ElementType promoteToFloating(ElementType floating, ElementType integer) {
  const bool fits = floating == ElementType::Single && elementSize(integer) <= 2;
  return fits ? ElementType::Single : ElementType::Double;
}

ElementType promoteIntegers(ElementType a, ElementType b) {
  if (isSigned(a) == isSigned(b)) {
    return std::max(a, b);
  }
  const auto [isSignedSide, isUnsignedSide] = isSigned(a) ? std::pair(a, b) : std::pair(b, a);
  if (elementSize(isSignedSide) > elementSize(isUnsignedSide)) {
    return isSignedSide;
  }
  if (isUnsignedSide == ElementType::UInt64) {
    return ElementType::Double;
  }
  return static_cast<ElementType>(indexOf(isUnsignedSide) + 1);  // signed, of twice the width
}

[[noreturn]] void throwBadTypes(const ElementFunction& function,
                                std::span<const OperandType> types) {
  std::string list;
  for (const OperandType& type : types) {
    list += list.empty() ? "" : " and ";
    list += elementTypeName(type.type);
  }
  errors::raiseStep("KALVEX:function:BadTypes", {std::string(function.name), list});
}

/// The common type of numbers, including constants.
ElementType commonType(std::span<const OperandType> types) {
  const bool allWeak = std::ranges::all_of(types, &OperandType::isWeak);
  bool isFirst = true;
  ElementType common = ElementType::Logical;
  Kind weakKind = Kind::Logical;
  for (const OperandType& type : types) {
    if (type.isWeak) {
      weakKind = std::max(weakKind, kindOf(type.type));
    } else {
      common = isFirst ? type.type : promoteTypes(common, type.type);
      isFirst = false;
    }
  }
  if (allWeak && weakKind == Kind::Logical) {
    return ElementType::Logical;
  }
  if (!allWeak && weakKind <= kindOf(common)) {
    return common;
  }
  return weakKind == Kind::Integer ? ElementType::Int64 : ElementType::Double;
}

ElementType floatingFor(ElementType type) {
  if (isFloating(type)) {
    return type;
  }
  return elementSize(type) <= 2 ? ElementType::Single : ElementType::Double;
}

Signature applyRule(TypeRule rule, ElementType common) {
  const bool isLogical = common == ElementType::Logical;
  const ElementType counting = isLogical ? ElementType::Int8 : common;
  const ElementType quotient = isFloating(common) ? common : ElementType::Double;
  switch (rule) {
    case TypeRule::Promoted:
    case TypeRule::Choice:
      break;
    case TypeRule::Counting:
    case TypeRule::Power:
      return {counting, counting};
    case TypeRule::Quotient:
      return {quotient, quotient};
    case TypeRule::Floating:
      return {floatingFor(common), floatingFor(common)};
    case TypeRule::Comparison:
      return {common, ElementType::Logical};
    case TypeRule::Truth:
      return {ElementType::Logical, ElementType::Logical};
    case TypeRule::Class:
      return {quotient, ElementType::Logical};
  }
  return {common, common};
}

bool isOfTime(const OperandType& type) { return isTime(type.type); }

bool isText(const OperandType& type) { return type.type == ElementType::String; }

/// The type of the chosen values; the condition doesn't affect it.
Signature resolveChoice(const ElementFunction& function, std::span<const OperandType> types) {
  if (types[0].type != ElementType::Logical) {
    errors::raiseStep("KALVEX:function:BadTypes",
                      {std::string(function.name),
                       fmt::format("a {} condition", elementTypeName(types[0].type))});
  }
  const std::span<const OperandType> sides = types.subspan(1);
  if (std::ranges::all_of(sides, isText)) {
    return {ElementType::String, ElementType::String};
  }
  if (sides[0].type == sides[1].type && isOfTime(sides[0])) {
    return {sides[0].type, sides[0].type};
  }
  if (std::ranges::any_of(sides, isText) || std::ranges::any_of(sides, isOfTime)) {
    throwBadTypes(function, types);
  }
  return applyRule(function.rule, commonType(sides));
}

void checkArity(const ElementFunction& function, std::size_t count) {
  if (count == function.arity) {
    return;
  }
  errors::raiseStep(
      "KALVEX:function:BadArity",
      {std::string(function.name), std::to_string(function.arity), std::to_string(count)});
}

}  // namespace

ElementType promoteTypes(ElementType a, ElementType b) {
  assert(isNumeric(a) && isNumeric(b));
  if (a == b || b == ElementType::Logical) {
    return a;
  }
  if (a == ElementType::Logical) {
    return b;
  }
  if (isFloating(a) && isFloating(b)) {
    return ElementType::Double;
  }
  if (isFloating(a)) {
    return promoteToFloating(a, b);
  }
  if (isFloating(b)) {
    return promoteToFloating(b, a);
  }
  return promoteIntegers(a, b);
}

Signature resolve(const ElementFunction& function, std::span<const OperandType> types) {
  checkArity(function, types.size());
  if (function.rule == TypeRule::Choice) {
    return resolveChoice(function, types);
  }
  if (std::ranges::any_of(types, isText)) {
    if (function.text == nullptr || !std::ranges::all_of(types, isText)) {
      throwBadTypes(function, types);
    }
    return {ElementType::String, ElementType::Logical};
  }
  if (std::ranges::any_of(types, isOfTime)) {
    if (const std::optional<Signature> signature = resolveTimes(function, types)) {
      return *signature;
    }
    throwBadTypes(function, types);
  }
  const Signature signature = applyRule(function.rule, commonType(types));
  if (!blockKernel(function, signature.compute, Spread::None)) {
    throwBadTypes(function, types);
  }
  return signature;
}

BlockKernel blockKernel(const ElementFunction& function, ElementType compute, Spread spread) {
  if (compute == ElementType::String || function.blocks == nullptr) {
    return nullptr;
  }
  return (*function.blocks)[blockRow(compute)][static_cast<std::size_t>(spread)];
}

}  // namespace kv::runtime

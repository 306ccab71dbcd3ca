#include "kernel/timeRules.h"

#include <algorithm>
#include <cassert>
#include <iterator>
#include <string_view>

#include "column/elementTypes.h"

namespace kv::runtime {

namespace {

using enum ElementType;

/// A function of two that is defined for times; Int64 means any integer or logical, Double any
/// floating number.
struct TimeRule {
  std::string_view function;
  ElementType left;
  ElementType right;
  Signature signature;
};

constexpr TimeRule kRules[] = {
    {"plus", DateTime, Duration, {Duration, DateTime}},
    {"plus", Duration, DateTime, {Duration, DateTime}},
    {"plus", Duration, Duration, {Duration, Duration}},
    {"minus", DateTime, DateTime, {Duration, Duration}},
    {"minus", DateTime, Duration, {Duration, DateTime}},
    {"minus", Duration, Duration, {Duration, Duration}},
    {"times", Duration, Int64, {Duration, Duration}},
    {"times", Int64, Duration, {Duration, Duration}},
    {"times", Duration, Double, {Double, Duration}},
    {"times", Double, Duration, {Double, Duration}},
    {"rdivide", Duration, Int64, {Double, Duration}},
    {"rdivide", Duration, Double, {Double, Duration}},
    {"rdivide", Duration, Duration, {Double, Double}},
    {"minimum", DateTime, DateTime, {Duration, DateTime}},
    {"minimum", Duration, Duration, {Duration, Duration}},
    {"maximum", DateTime, DateTime, {Duration, DateTime}},
    {"maximum", Duration, Duration, {Duration, Duration}},
};

constexpr std::string_view kOfOneDuration[] = {"uminus", "abs"};

ElementType timeKindOf(ElementType type) {
  if (isWhole(type)) {
    return Int64;
  }
  return isFloating(type) ? Double : type;
}

}  // namespace

std::optional<Signature> resolveTimes(const ElementFunction& function,
                                      std::span<const OperandType> types) {
  assert(std::ranges::any_of(types, isTime, &OperandType::type));
  assert(function.rule != TypeRule::Choice);
  if (function.rule == TypeRule::Class) {
    return Signature{Double, Logical};
  }
  if (types.size() == 1) {
    const bool isDefined =
        types[0].type == Duration && std::ranges::count(kOfOneDuration, function.name) > 0;
    return isDefined ? std::optional(Signature{Duration, Duration}) : std::nullopt;
  }
  if (function.rule == TypeRule::Comparison) {
    return types[0].type == types[1].type ? std::optional(Signature{Duration, Logical})
                                          : std::nullopt;
  }
  const auto* rule = std::ranges::find_if(kRules, [&](const TimeRule& row) {
    return row.function == function.name && row.left == timeKindOf(types[0].type) &&
           row.right == timeKindOf(types[1].type);
  });
  return rule == std::end(kRules) ? std::nullopt : std::optional(rule->signature);
}

}  // namespace kv::runtime

#pragma once

#include <string_view>

#include "formula/Formula.h"

namespace kv::shell {

/// The deepest nesting allowed; each parenthesis, call, prefix operator and right operand is a
/// level.
inline constexpr int kDeepestNesting = 500;

/// Reads a formula: columns, numbers, texts, `true` and `false`, calls and operators, optionally
/// preceded by `name =`.
///
/// Operators, in ascending order of precedence. `^` is right-associative, comparisons don't chain,
/// all others are left-associative:
///
///     |    &    !    == != < <= > >=    + -    * / %    - (unary)    ^
///
/// Functions and columns aren't looked up here.
/// Errors: FormulaError with the place, also for nesting deeper than `kDeepestNesting`.
/// Cost: O(length); native recursion as deep as the nesting.
Formula parseFormula(std::string_view text);

}  // namespace kv::shell

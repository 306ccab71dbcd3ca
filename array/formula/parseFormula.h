#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "formula/Formula.h"

namespace kv::formula {

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

/// The formulas of a list, which are separated by commas outside of parentheses.
/// Errors: FormulaError for what isn't a token.
std::vector<std::string> splitFormulas(std::string_view list);

}  // namespace kv::formula

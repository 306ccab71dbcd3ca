#pragma once

#include <string_view>

#include "formula/Formula.h"

namespace kv::shell {

/// Deepest nesting; each parenthesis, call, prefix operator and right side of an operator is a
/// level.
inline constexpr int kDeepestNesting = 500;

/// Reads a formula: columns, numbers, texts, `true` and `false`, calls, operators, and in front,
/// if one likes, `name =`.
///
/// Operators, those that bind least first; all but `^` group from the left, comparisons not at all:
///
///     |    &    !    == != < <= > >=    + -    * / %    - (unary)    ^
///
/// Functions and columns aren't looked up here.
/// Errors: FormulaError with the place, also for nesting deeper than `kDeepestNesting`.
/// Cost: O(length); native recursion as deep as the nesting.
Formula parseFormula(std::string_view text);

}  // namespace kv::shell

#pragma once

#include <span>
#include <string_view>

namespace kv::formula {

/// A word of another language, and its equivalent in a formula.
struct ForeignWord {
  std::string_view word;
  std::string_view here;
};

/// Symbols that aren't operators of a formula, such as `&&`.
std::span<const ForeignWord> foreignSymbols();

/// The operator that corresponds to a word such as `and`, in upper or lower case; empty for others.
std::string_view operatorHere(std::string_view word);

/// The name in formulas of a function such as `avg`; `name` itself if it isn't known.
std::string_view functionHere(std::string_view name);

}  // namespace kv::formula

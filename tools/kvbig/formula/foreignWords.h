#pragma once

#include <span>
#include <string_view>

namespace kv::shell {

/// A word of another language, and what it is called in a formula.
struct ForeignWord {
  std::string_view word;
  std::string_view here;
};

/// Symbols that aren't operators of a formula, such as `&&`.
std::span<const ForeignWord> foreignSymbols();

/// The operator that a word such as `and` is elsewhere, in any case of letters; empty for others.
std::string_view operatorHere(std::string_view word);

/// What a function such as `avg` is called here; `name` itself if it isn't known.
std::string_view functionHere(std::string_view name);

}  // namespace kv::shell

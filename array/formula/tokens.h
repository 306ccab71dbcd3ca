#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "formula/Formula.h"

namespace kv::formula {

struct Token {
  enum class Kind : std::uint8_t {
    Number,
    Text,        ///< in quotes; `text` excludes them and has escapes resolved
    Name,        ///< a plain name
    QuotedName,  ///< in backquotes; `text` excludes them
    Symbol,      ///< an operator, a parenthesis, a comma or `=`
    End,
  };

  Kind kind = Kind::End;
  std::string text;
  Constant number{};
  Span place;

  bool isSymbol(std::string_view symbol) const { return kind == Kind::Symbol && text == symbol; }
};

/// Splits a formula into tokens; the last one is `End`.
///
/// Names start with a letter, `_` or a character beyond ASCII, and continue with these, digits and
/// dots. Texts are in `"` or `'` and allow the escapes \\ \" \' \n \r \t. Within backquotes, a
/// backquote is doubled.
/// Errors: FormulaError for what isn't a token, a text without an end, an unknown escape, a number
///         beyond the range of doubles, and for bytes that aren't UTF-8.
std::vector<Token> tokenize(std::string_view formula);

/// The double nearest to the whole number that `digits` represent.
Constant nearestDouble(std::string_view digits);

/// A column's name as it must be written in a formula: in backquotes unless it is a plain name.
std::string columnAsWritten(std::string_view name);

}  // namespace kv::formula

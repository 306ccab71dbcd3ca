#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "formula/Formula.h"

namespace kv::shell {

struct Token {
  enum class Kind : std::uint8_t {
    Number,
    Text,        ///< in quotes; `text` is without them, escapes resolved
    Name,        ///< a plain name
    QuotedName,  ///< in backquotes; `text` is without them
    Symbol,      ///< an operator, a parenthesis, a comma or `=`
    End,
  };

  Kind kind = Kind::End;
  std::string text;
  Constant number{};
  Span place;

  bool isSymbol(std::string_view symbol) const { return kind == Kind::Symbol && text == symbol; }
};

/// Cuts a formula into tokens; the last one is `End`.
///
/// Names start with a letter, `_` or a character beyond ASCII, and go on with these, digits and
/// dots. Texts stand in `"` or `'` and know the escapes \\ \" \' \n \r \t. In backquotes a
/// backquote is doubled.
/// Errors: FormulaError for what isn't a token, a text without an end, an unknown escape, a number
///         beyond the range of doubles, and for bytes that aren't UTF-8.
std::vector<Token> tokenize(std::string_view formula);

/// The double nearest to a whole number of `digits`.
Constant nearestDouble(std::string_view digits);

/// A column's name as it stands in a formula: in backquotes unless it is a plain name.
std::string columnAsWritten(std::string_view name);

}  // namespace kv::shell

// Formulas come from a command line and are written by people who know other languages, so a token
// that isn't valid here is refused with its place and with the spelling that is meant. Integers
// keep their exact value; a whole number beyond 64 bits becomes the nearest double and is marked as
// rounded, because only some uses of it are exact.

#include "formula/tokens.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <optional>
#include <system_error>
#include <utility>

#include "formula/FormulaError.h"
#include "formula/foreignWords.h"
#include "formula/utf8.h"

namespace kv::formula {

namespace {

// Longest first, so that `<=` isn't read as `<` and `=`.
constexpr std::string_view kOperatorTexts[] = {"==", "!=", "<=", ">=", "+", "-", "*", "/", "%", "^",
                                               "<",  ">",  "&",  "|",  "!", "(", ")", ",", "="};

bool isDigit(char c) { return c >= '0' && c <= '9'; }
bool isSpace(char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\r'; }
bool startsName(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '_' ||
         static_cast<unsigned char>(c) >= 0x80;
}
bool continuesName(char c) { return startsName(c) || isDigit(c) || c == '.'; }

/// The number that a run of digits represents, if it fits 64 bits.
std::optional<Constant> integerOf(std::string_view digits) {
  std::uint64_t whole = 0;
  const auto [end, status] = std::from_chars(digits.data(), digits.data() + digits.size(), whole);
  if (status != std::errc()) {
    return std::nullopt;
  }
  if (std::in_range<std::int64_t>(whole)) {
    return Constant{static_cast<std::int64_t>(whole)};
  }
  return Constant{whole};
}

std::optional<char> unescape(char c) {
  switch (c) {
    case '\\':
    case '"':
    case '\'':
      return c;
    case 'n':
      return '\n';
    case 'r':
      return '\r';
    case 't':
      return '\t';
    default:
      return std::nullopt;
  }
}

class Tokenizer {
 public:
  explicit Tokenizer(std::string_view formula) : formula_(formula) {}

  std::vector<Token> run() {
    if (const auto bad = findInvalidUtf8(formula_)) {
      throw FormulaError(formula_.substr(0, *bad), {*bad, *bad},
                         "the formula contains bytes that aren't UTF-8 text");
    }
    while (skipSpace(), at_ < formula_.size()) {
      tokens_.push_back(next());
    }
    tokens_.push_back({Token::Kind::End, "", {}, {at_, at_}});
    return std::move(tokens_);
  }

 private:
  void skipSpace() {
    while (at_ < formula_.size() && isSpace(formula_[at_])) {
      ++at_;
    }
  }

  Token next() {
    const char c = formula_[at_];
    const char following = at_ + 1 < formula_.size() ? formula_[at_ + 1] : '\0';
    if (isDigit(c) || (c == '.' && isDigit(following))) {
      return number();
    }
    if (startsName(c)) {
      return name();
    }
    if (c == '"' || c == '\'') {
      return quotedText(c);
    }
    if (c == '`') {
      return quotedName();
    }
    return symbol();
  }

  Token number() {
    const std::size_t begin = at_;
    double value = 0;
    const char* const first = formula_.data() + begin;
    const auto [end, status] = std::from_chars(first, formula_.data() + formula_.size(), value);
    at_ = begin + static_cast<std::size_t>(end - first);
    if (at_ < formula_.size() && continuesName(formula_[at_])) {
      while (at_ < formula_.size() && continuesName(formula_[at_])) {
        ++at_;
      }
      fail({begin, at_},
           fmt::format("\"{}\" is neither a number nor a name", shortened(since(begin))),
           "A column name that starts with a digit must be written in backquotes.");
    }
    if (status == std::errc::result_out_of_range) {
      fail({begin, at_}, "the number is too large for a double");
    }
    return {Token::Kind::Number, "", constantOf({begin, at_}, value), {begin, at_}};
  }

  Constant constantOf(Span place, double value) const {
    const std::string_view written = since(place.begin);
    if (!std::ranges::all_of(written, isDigit)) {
      return {value};
    }
    const std::optional<Constant> integer = integerOf(written);
    return integer ? *integer : nearestDouble(written);
  }

  Token name() {
    const std::size_t begin = at_;
    while (at_ < formula_.size() && continuesName(formula_[at_])) {
      ++at_;
    }
    return {Token::Kind::Name, std::string(since(begin)), {}, {begin, at_}};
  }

  Token quotedText(char quote) {
    const std::size_t begin = at_++;
    std::string text;
    for (; at_ < formula_.size() && formula_[at_] != quote; ++at_) {
      if (formula_[at_] != '\\') {
        text += formula_[at_];
        continue;
      }
      if (++at_ == formula_.size()) {
        break;
      }
      const std::optional<char> meant = unescape(formula_[at_]);
      if (!meant) {
        fail({at_ - 1, at_ + 1}, "unknown escape in a text",
             R"(The known escapes are \\ \" \' \n \r \t.)");
      }
      text += *meant;
    }
    if (at_ >= formula_.size()) {
      fail({begin, begin + 1}, fmt::format("the text that starts here has no closing {}", quote));
    }
    ++at_;
    return {Token::Kind::Text, std::move(text), {}, {begin, at_}};
  }

  Token quotedName() {
    const std::size_t begin = at_++;
    std::string text;
    for (; at_ < formula_.size(); ++at_) {
      if (formula_[at_] == '`') {
        if (at_ + 1 >= formula_.size() || formula_[at_ + 1] != '`') {
          break;
        }
        ++at_;
      }
      text += formula_[at_];
    }
    if (at_ >= formula_.size()) {
      fail({begin, begin + 1}, "the name that starts here has no closing backquote");
    }
    ++at_;
    return {Token::Kind::QuotedName, std::move(text), {}, {begin, at_}};
  }

  Token symbol() {
    const std::string_view rest = formula_.substr(at_);
    for (const ForeignWord& foreign : foreignSymbols()) {
      if (rest.starts_with(foreign.word)) {
        fail({at_, at_ + foreign.word.size()},
             fmt::format("\"{}\" isn't an operator here", foreign.word),
             fmt::format("Did you mean {}?", foreign.here));
      }
    }
    for (const std::string_view known : kOperatorTexts) {
      if (rest.starts_with(known)) {
        at_ += known.size();
        return {Token::Kind::Symbol, std::string(known), {}, {at_ - known.size(), at_}};
      }
    }
    fail({at_, at_ + 1}, fmt::format("\"{}\" has no meaning in a formula", rest.front()));
  }

  std::string_view since(std::size_t begin) const { return formula_.substr(begin, at_ - begin); }

  [[noreturn]] void fail(Span place, std::string_view sentence,
                         std::string_view advice = {}) const {
    throw FormulaError(formula_, place, sentence, advice);
  }

  std::string_view formula_;
  std::size_t at_ = 0;
  std::vector<Token> tokens_;
};

}  // namespace

Constant nearestDouble(std::string_view digits) {
  double nearest = 0;
  std::from_chars(digits.data(), digits.data() + digits.size(), nearest);
  const std::string_view significant =
      digits.substr(std::min(digits.find_first_not_of('0'), digits.size()));
  return {nearest, fmt::format("{:.0f}", nearest) != significant};
}

std::vector<Token> tokenize(std::string_view formula) { return Tokenizer(formula).run(); }

std::string columnAsWritten(std::string_view name) {
  const bool isPlain = !name.empty() && startsName(name.front()) &&
                       std::ranges::all_of(name, continuesName) && name != "true" &&
                       name != "false";
  if (isPlain) {
    return std::string(name);
  }
  std::string quoted = "`";
  for (const char c : name) {
    quoted += c == '`' ? "``" : std::string(1, c);
  }
  return quoted + '`';
}

}  // namespace kv::formula

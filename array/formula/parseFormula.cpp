// A recursive-descent parser that emits postfix steps as it goes, so the result needs no tree and a
// formula of any length is processed later with a loop and a stack. Only nesting uses native
// recursion, which is limited. Most of the code is about errors: each one names the place, and the
// usual slips (chained comparisons, operators and functions of other languages, blanks in names)
// get advice.

#include "formula/parseFormula.h"

#include <fmt/format.h>

#include <algorithm>
#include <cassert>
#include <iterator>
#include <string>
#include <utility>

#include "formula/FormulaError.h"
#include "formula/foreignWords.h"
#include "formula/tokens.h"
#include "formula/utf8.h"

namespace kv::formula {

namespace {

enum Precedence : int { kLowest, kOr, kAnd, kNot, kComparison, kSum, kProduct, kSign, kPower };

struct Operator {
  std::string_view symbol;
  Precedence precedence;
  std::string_view function;
};

constexpr Operator kInfix[] = {
    {"|", kOr, "or"},          {"&", kAnd, "and"},        {"==", kComparison, "eq"},
    {"!=", kComparison, "ne"}, {"<", kComparison, "lt"},  {"<=", kComparison, "le"},
    {">", kComparison, "gt"},  {">=", kComparison, "ge"}, {"+", kSum, "plus"},
    {"-", kSum, "minus"},      {"*", kProduct, "times"},  {"/", kProduct, "rdivide"},
    {"%", kProduct, "mod"},    {"^", kPower, "power"},
};
constexpr Operator kPrefix[] = {{"!", kNot, "not"}, {"-", kSign, "uminus"}};

template <std::size_t N>
const Operator* findOperator(const Operator (&table)[N], const Token& token) {
  const auto* found =
      std::ranges::find_if(table, [&](const Operator& row) { return token.isSymbol(row.symbol); });
  return found == std::end(table) ? nullptr : found;
}

std::string trimmed(std::string_view text) {
  const auto first = text.find_first_not_of(" \t\n\r");
  if (first == std::string_view::npos) {
    return {};
  }
  return std::string(text.substr(first, text.find_last_not_of(" \t\n\r") - first + 1));
}

/// A parser by precedence climbing. Each function starts at the current token and makes the token
/// after what it has read the current one.
class Parser {
 public:
  explicit Parser(std::string_view text)
      : formula_{std::string(text), trimmed(text), false, {}}, tokens_(tokenize(text)) {}

  Formula run() {
    readLabel();
    if (current().kind == Token::Kind::End) {
      fail(current().place, "the formula is empty");
    }
    readExpression(kLowest);
    if (current().kind != Token::Kind::End) {
      failAtLeftover();
    }
    return std::move(formula_);
  }

 private:
  using Kind = Token::Kind;

  struct Nesting {
    explicit Nesting(Parser& parser) : depth(parser.depth_) {
      if (++depth > kDeepestNesting) {
        --depth;
        parser.fail(parser.current().place,
                    fmt::format("nested too deep: more than {} levels", kDeepestNesting));
      }
    }
    ~Nesting() { --depth; }
    Nesting(const Nesting&) = delete;
    Nesting& operator=(const Nesting&) = delete;
    int& depth;
  };

  const Token& current() const { return tokens_[at_]; }

  void readLabel() {
    const bool isName = current().kind == Kind::Name || current().kind == Kind::QuotedName;
    if (!isName || !tokens_[at_ + 1].isSymbol("=")) {
      return;
    }
    formula_.label = current().text;
    formula_.isNamed = true;
    at_ += 2;
  }

  void readExpression(int loosest) {
    const Nesting nesting(*this);
    readOperand();
    while (const Operator* infix = findOperator(kInfix, current())) {
      if (infix->precedence < loosest) {
        return;
      }
      const Span place = current().place;
      ++at_;
      const bool groupsFromRight = infix->precedence == kPower;
      readExpression(groupsFromRight ? infix->precedence : infix->precedence + 1);
      add(Call{std::string(infix->function), 2}, place);
      if (infix->precedence == kComparison) {
        refuseChain();
      }
    }
  }

  void refuseChain() const {
    const Operator* next = findOperator(kInfix, current());
    if (next != nullptr && next->precedence == kComparison) {
      fail(current().place, "comparisons don't chain", "Join two with &, as in a < b & b < c.");
    }
  }

  void readOperand() {
    const Token& token = current();
    if (const Operator* prefix = findOperator(kPrefix, token)) {
      return readPrefixed(*prefix);
    }
    switch (token.kind) {
      case Kind::Number:
        ++at_;
        return add(token.number, token.place);
      case Kind::Text:
        ++at_;
        return add(Constant{token.text}, token.place);
      case Kind::QuotedName:
        ++at_;
        return add(Column{token.text}, token.place);
      case Kind::Name:
        return readName();
      case Kind::Symbol:
        if (token.isSymbol("(")) {
          return readParenthesized();
        }
        [[fallthrough]];
      case Kind::End:
        failAtMissingOperand();
    }
  }

  void readPrefixed(const Operator& prefix) {
    const Span place = current().place;
    const std::size_t before = formula_.steps.size();
    ++at_;
    readExpression(prefix.precedence);
    // A sign and a number are one constant, so that they adapt to a column's type together.
    if (prefix.precedence == kSign && formula_.steps.size() == before + 1) {
      auto* constant = std::get_if<Constant>(&formula_.steps.back().what);
      if (constant != nullptr && isNumber(*constant)) {
        formula_.steps.back().place.begin = place.begin;
        *constant = negative(*constant);
        return;
      }
    }
    add(Call{std::string(prefix.function), 1}, place);
  }

  static bool isNumber(const Constant& constant) {
    return !std::holds_alternative<bool>(constant.value) &&
           !std::holds_alternative<std::string>(constant.value);
  }

  /// Requires: a number.
  static Constant negative(const Constant& constant) {
    assert(isNumber(constant));
    constexpr std::uint64_t kBelow = std::uint64_t{1} << 63;  // -kBelow is the smallest int64
    if (const auto* number = std::get_if<double>(&constant.value)) {
      return {-*number, constant.isRounded};
    }
    const auto* integer = std::get_if<std::int64_t>(&constant.value);
    const std::uint64_t whole =
        integer ? static_cast<std::uint64_t>(*integer) : std::get<std::uint64_t>(constant.value);
    if (integer && whole == kBelow) {
      return {kBelow};
    }
    if (integer || whole <= kBelow) {
      return {static_cast<std::int64_t>(0 - whole)};
    }
    const Constant nearest = nearestDouble(fmt::format("{}", whole));
    return {-std::get<double>(nearest.value), nearest.isRounded};
  }

  void readParenthesized() {
    const Span open = current().place;
    ++at_;
    readExpression(kLowest);
    close(open);
  }

  void readName() {
    const Token& name = current();
    ++at_;
    if (current().isSymbol("(")) {
      return readCall(name);
    }
    if (name.text == "true") {
      return add(Constant{true}, name.place);
    }
    if (name.text == "false") {
      return add(Constant{false}, name.place);
    }
    add(Column{name.text}, name.place);
  }

  void readCall(const Token& name) {
    const Span open = current().place;
    ++at_;
    std::size_t inputs = 0;
    refuseAllColumns(name);
    if (!current().isSymbol(")")) {
      do {
        if (inputs++ > 0) {
          ++at_;
        }
        readExpression(kLowest);
      } while (current().isSymbol(","));
    }
    close(open);
    add(Call{name.text, inputs}, name.place);
  }

  /// `count(*)`, with which other languages count rows.
  void refuseAllColumns(const Token& function) const {
    if (!current().isSymbol("*") || !tokens_[at_ + 1].isSymbol(")")) {
      return;
    }
    const std::string advice = fmt::format("Did you mean {}(x), with a column x?", function.text);
    fail(current().place, "\"*\" isn't a column",
         lowered(function.text) != "count"
             ? advice
             : advice + " It counts values that aren't missing; count(isnan(x)) counts all rows.");
  }

  void close(Span open) {
    if (current().kind == Kind::End) {
      fail(open, "this \"(\" is never closed");
    }
    if (!current().isSymbol(")")) {
      failAtLeftover();
    }
    ++at_;
  }

  template <class What>
  void add(What what, Span place) {
    formula_.steps.push_back({std::move(what), place});
  }

  std::string shown(const Token& token) const {
    return formula_.text.substr(token.place.begin, token.place.end - token.place.begin);
  }

  /// Advice on an operator's name from another language, or on a column name that contains a blank.
  std::string adviceOnTwoWords() const {
    const bool followsNot = at_ > 0 && lowered(tokens_[at_ - 1].text) == "not";
    const std::string_view here = operatorHere(followsNot ? "not" : current().text);
    if (current().kind == Kind::Name && !here.empty()) {
      return fmt::format("Did you mean {}?", here);
    }
    const auto isWord = [](const Token& token) {
      return token.kind == Kind::Name || token.kind == Kind::Number;
    };
    if (at_ == 0 || tokens_[at_ - 1].kind != Kind::Name || !isWord(current())) {
      return {};
    }
    const std::size_t begin = tokens_[at_ - 1].place.begin;
    const std::string name = formula_.text.substr(begin, current().place.end - begin);
    return fmt::format("If this is one column name, put it in backquotes: {}.",
                       columnAsWritten(name));
  }

  [[noreturn]] void failAtMissingOperand() const {
    if (current().kind == Kind::End) {
      fail(current().place, "the formula is incomplete");
    }
    fail(current().place,
         fmt::format("expected a column, a value or a function before \"{}\"", shown(current())));
  }

  [[noreturn]] void failAtLeftover() const {
    if (current().isSymbol("=")) {
      fail(current().place, "\"=\" names a result and may only follow the formula's first word",
           "Write == to compare.");
    }
    if (current().isSymbol(")")) {
      fail(current().place, "this \")\" has no matching \"(\"");
    }
    fail(current().place, fmt::format("expected an operator before \"{}\"", shown(current())),
         adviceOnTwoWords());
  }

  [[noreturn]] void fail(Span place, std::string_view sentence,
                         std::string_view advice = {}) const {
    throw FormulaError(formula_.text, place, sentence, advice);
  }

  Formula formula_;
  std::vector<Token> tokens_;
  std::size_t at_ = 0;
  int depth_ = 0;
};

}  // namespace

Formula parseFormula(std::string_view text) { return Parser(text).run(); }

std::vector<std::string> splitFormulas(std::string_view list) {
  std::vector<std::string> formulas;
  std::size_t begin = 0;
  int depth = 0;
  for (const Token& token : tokenize(list)) {
    depth += token.isSymbol("(") ? 1 : token.isSymbol(")") ? -1 : 0;
    if ((token.isSymbol(",") && depth <= 0) || token.kind == Token::Kind::End) {
      formulas.push_back(trimmed(list.substr(begin, token.place.begin - begin)));
      begin = token.place.end;
    }
  }
  return formulas;
}

}  // namespace kv::formula

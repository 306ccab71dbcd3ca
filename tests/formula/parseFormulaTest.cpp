#include "formula/parseFormula.h"

#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "formula/FormulaError.h"

namespace kv::formula {

namespace {

using testing::HasSubstr;

std::string shown(const Constant& constant) {
  if (const auto* text = std::get_if<std::string>(&constant.value)) {
    return '"' + *text + '"';
  }
  if (const auto* logical = std::get_if<bool>(&constant.value)) {
    return *logical ? "TRUE" : "FALSE";
  }
  if (const auto* integer = std::get_if<std::int64_t>(&constant.value)) {
    return fmt::format("{}", *integer);
  }
  if (const auto* whole = std::get_if<std::uint64_t>(&constant.value)) {
    return fmt::format("{}u", *whole);
  }
  return fmt::format("{}d", std::get<double>(constant.value));
}
std::string shown(const Column& column) { return column.name; }
std::string shown(const Call& call) { return fmt::format("{}/{}", call.function, call.inputs); }

/// The steps of a formula, as `x 1 plus/2`.
std::string steps(std::string_view text) {
  std::string line;
  for (const Step& step : parseFormula(text).steps) {
    if (!line.empty()) {
      line += ' ';
    }
    line += std::visit([](const auto& what) { return shown(what); }, step.what);
  }
  return line;
}

std::string failure(std::string_view text) {
  try {
    parseFormula(text);
  } catch (const FormulaError& error) {
    return error.what();
  }
  return "no error";
}

TEST(ParseFormula, BindsOperatorsAsTheHeaderSays) {
  EXPECT_EQ(steps("a + b * c"), "a b c times/2 plus/2");
  EXPECT_EQ(steps("a - b - c"), "a b minus/2 c minus/2");
  EXPECT_EQ(steps("a / b % c"), "a b rdivide/2 c mod/2");
  EXPECT_EQ(steps("a ^ b ^ c"), "a b c power/2 power/2");
  EXPECT_EQ(steps("-a ^ 2"), "a 2 power/2 uminus/1");
  EXPECT_EQ(steps("a ^ -b * c"), "a b uminus/1 power/2 c times/2");
  EXPECT_EQ(steps("a * -b + c"), "a b uminus/1 times/2 c plus/2");
  EXPECT_EQ(steps("a | b & c"), "a b c and/2 or/2");
  EXPECT_EQ(steps("a + 1 > b & c != d"), "a 1 plus/2 b gt/2 c d ne/2 and/2");
  EXPECT_EQ(steps("!a == b & c"), "a b eq/2 not/1 c and/2");
  EXPECT_EQ(steps("(a + b) * c"), "a b plus/2 c times/2");
}

TEST(ParseFormula, NestsCallsAndCountsTheirInputs) {
  EXPECT_EQ(steps("std(x - mean(x))"), "x x mean/1 minus/2 std/1");
  EXPECT_EQ(steps("minimum(a, b + 1)"), "a b 1 plus/2 minimum/2");
  EXPECT_EQ(steps("f()"), "f/0");
}

TEST(ParseFormula, ReadsConstants) {
  EXPECT_EQ(steps("1e3 + 1000"), "1000d 1000 plus/2");
  EXPECT_EQ(steps(".5"), "0.5d");
  EXPECT_EQ(steps("-60"), "-60");
  EXPECT_EQ(steps("- - 60"), "60");
  EXPECT_EQ(steps("12345678901234567 - 18446744073709551615"),
            "12345678901234567 18446744073709551615u minus/2");
  EXPECT_EQ(steps("-9223372036854775808"), "-9223372036854775808");
  EXPECT_EQ(steps("- - 9223372036854775808"), "9223372036854775808u");
  EXPECT_EQ(steps("100000000000000000000"), "1e+20d") << "exactly";
  EXPECT_EQ(steps("true | false"), "TRUE FALSE or/2");
  EXPECT_EQ(steps(R"('it\'s' == "a\\b\"\n")"), "\"it's\" \"a\\b\"\n\" eq/2");
}

TEST(ParseFormula, TakesOddNamesInBackquotes) {
  EXPECT_EQ(steps("`two words` + `a``b` + `true`"), "two words a`b plus/2 true plus/2");
  EXPECT_EQ(steps("größe.neu_2"), "größe.neu_2");
}

TEST(ParseFormula, NamesAResultByTheLeadingNameOrByItsText) {
  EXPECT_EQ(parseFormula("late = mean(x > 60)").label, "late");
  EXPECT_EQ(parseFormula("`share late`=mean(x)").label, "share late");
  EXPECT_EQ(parseFormula("  mean( x ) ").label, "mean( x )");
  EXPECT_EQ(parseFormula("x == 1").label, "x == 1");
}

TEST(ParseFormula, RecordsThePositionOfEachStep) {
  const Formula formula = parseFormula("a + mean(b)");
  const auto text = [&](std::size_t step) {
    const Span place = formula.steps[step].place;
    return formula.text.substr(place.begin, place.end - place.begin);
  };
  EXPECT_EQ(text(1), "b");
  EXPECT_EQ(text(2), "mean");
  EXPECT_EQ(text(3), "+");
}

TEST(ParseFormula, MarksThePlaceOfAMistake) {
  EXPECT_EQ(failure("mean(x"), "this \"(\" is never closed\n    mean(x\n        ^");
  EXPECT_EQ(failure("größe + * 2"),
            "expected a column, a value or a function before \"*\"\n"
            "    größe + * 2\n            ^");
  EXPECT_THAT(failure("a +"), HasSubstr("is incomplete\n    a +\n       ^"));
}

TEST(ParseFormula, RefusesInvalidFormulas) {
  const struct {
    const char* text;
    const char* sentence;
  } cases[] = {
      {"", "the formula is empty"},
      {"  ", "the formula is empty"},
      {"x =", "the formula is empty"},
      {"a = b = c", "Write == to compare"},
      {"a b", "expected an operator before \"b\""},
      {"a)", "no matching \"(\""},
      {"mean(x,)", "before \")\""},
      {"a < b < c", "comparisons don't chain"},
      {"a && b", "Did you mean &?"},
      {"a ** b", "Did you mean ^?"},
      {"mean(a > 1 AND b > 2)", "^^^\nDid you mean &?"},
      {"sum(not a)", "^\nDid you mean !?"},
      {"count(*)", "^\nDid you mean count(x), with a column x? It counts values that "},
      {"max(*)", "Did you mean max(x), with a column x?"},
      {"60min", "neither a number nor a name"},
      {"1e999", "too large for a double"},
      {"'open", "no closing '"},
      {"`open", "no closing backquote"},
      {R"("\q")", "unknown escape"},
      {"a $ b", "\"$\" has no meaning"},
      {"a\xff", "aren't UTF-8"},
      {"'\xed\xa0\x80'", "aren't UTF-8"},
  };
  for (const auto& entry : cases) {
    EXPECT_THAT(failure(entry.text), HasSubstr(entry.sentence)) << entry.text;
  }
}

std::string repeated(std::string_view part, std::size_t times) {
  std::string text;
  for (std::size_t i = 0; i < times; ++i) {
    text += part;
  }
  return text;
}

TEST(ParseFormula, TakesLongFormulasAndRefusesDeepOnes) {
  constexpr std::size_t kMany = 100'000;
  EXPECT_EQ(parseFormula("x" + repeated("+x", kMany)).steps.size(), 2 * kMany + 1);
  const std::string deep[] = {repeated("(", kMany),       repeated("-", kMany) + "x",
                              repeated("!", kMany) + "x", repeated("x^", kMany) + "x",
                              repeated("f(", kMany),      repeated("x+(", kMany)};
  for (const std::string& text : deep) {
    EXPECT_THAT(failure(text), HasSubstr("nested too deep")) << text.substr(0, 10);
    EXPECT_LT(failure(text).size(), 500U) << "the message shows only the place";
  }
}

}  // namespace
}  // namespace kv::formula

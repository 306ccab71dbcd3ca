#include "formula/checkFormula.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "formula/FormulaError.h"
#include "formula/nearNames.h"
#include "formula/parseFormula.h"

namespace kv::formula {

namespace {

using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

/// What is wrong with a formula; empty if nothing is.
std::string verdict(std::string_view text, Purpose purpose = Purpose::Result) {
  static const Vocabulary vocabulary = {{{"plus", 2}, {"gt", 2}, {"abs", 1}, {"rand", 0}},
                                        {"mean", "std"}};
  try {
    const Formula formula = parseFormula(text);
    checkCalls(formula, vocabulary);
    checkPurpose(formula, vocabulary, purpose);
  } catch (const FormulaError& error) {
    return error.what();
  }
  return "";
}

TEST(CheckFormula, AcceptsFormulasThatSuitTheirPurpose) {
  EXPECT_EQ(verdict("mean(x)"), "");
  EXPECT_EQ(verdict("mean(x) + 1"), "");
  EXPECT_EQ(verdict("std(x + mean(x))"), "");
  EXPECT_EQ(verdict("mean(mean(x))"), "");
  EXPECT_EQ(verdict("x > mean(x)", Purpose::Condition), "");
  EXPECT_EQ(verdict("rand() > 1", Purpose::Condition), "") << "one value per row";
}

TEST(CheckFormula, RefusesUnknownFunctionsAndWrongNumbersOfInputs) {
  EXPECT_THAT(verdict("maen(x)"), HasSubstr("no function \"maen\"\n    maen(x)\n    ^^^^\n"));
  for (const char* near : {"maen(x)", "Mean(x)", "meann(x)", "avg(x)", "AVERAGE(x)"}) {
    EXPECT_THAT(verdict(near), HasSubstr("\nDid you mean mean?\n")) << near;
  }
  EXPECT_THAT(verdict("median(x)"), Not(HasSubstr("Did you mean")));
  EXPECT_LT(verdict(std::string(1'000'000, 'f') + "(x)").size(), 500u);
  EXPECT_THAT(verdict("mean(x, 1)"), HasSubstr("mean takes 1 input, got 2"));
  EXPECT_THAT(verdict("mean(plus(x))"), HasSubstr("plus takes 2 inputs, got 1"));
  EXPECT_THAT(verdict("mean(rand(x))"), HasSubstr("rand takes 0 inputs, got 1"));
  EXPECT_THAT(verdict("mean()"), HasSubstr("mean takes 1 input, got 0"));
}

TEST(CheckFormula, RefusesFormulasThatDontSuitTheirPurpose) {
  EXPECT_THAT(verdict("x + 1"), HasSubstr("a value for each row"));
  EXPECT_THAT(verdict("1 + 1"), HasSubstr("no column"));
  EXPECT_THAT(verdict("mean(1 + 1)"),
              HasSubstr("this is a constant\n    mean(1 + 1)\n           ^"));
  EXPECT_THAT(verdict("mean(x) > 1", Purpose::Condition), HasSubstr("isn't a condition on rows"));
}

/// What is wrong with the columns of a formula; empty if nothing is.
std::string columnVerdict(std::string_view text, const std::vector<std::string>& columns) {
  try {
    checkColumns(parseFormula(text), columns);
  } catch (const FormulaError& error) {
    return error.what();
  }
  return "";
}

TEST(CheckColumns, RefusesUnknownColumns) {
  EXPECT_EQ(columnVerdict("mean(x) + `odd name`", {"x", "odd name"}), "");
  EXPECT_THAT(columnVerdict("mean(oddname)", {"x", "odd name"}),
              HasSubstr("no column \"oddname\"\n    mean(oddname)\n         ^^^^^^^\n"
                        "Did you mean `odd name`?\nAvailable columns: x, `odd name`."));
  EXPECT_THAT(columnVerdict("mean(y)", {"JFK", "10th", "true", "a`b"}),
              AllOf(HasSubstr("put it in quotes: \"y\"."),
                    HasSubstr("Available columns: JFK, `10th`, `true`, `a``b`.")));
}

TEST(NearNames, FindsSlipsOfTheFingersAndNothingElse) {
  const std::vector<std::string> names = {"dep_delay", "arr_delay", "origin", "x"};
  EXPECT_THAT(nearNames("dep_dealy", names), ElementsAre("dep_delay"));
  EXPECT_THAT(nearNames("ORIGIN", names), ElementsAre("origin"));
  EXPECT_THAT(nearNames("depdelay", names), ElementsAre("dep_delay"));
  EXPECT_THAT(nearNames("X", names), ElementsAre("x"));
  for (const char* other : {"tailnum", "y", "xy", "delay", "origen2"}) {
    EXPECT_THAT(nearNames(other, names), IsEmpty()) << other;
  }
  EXPECT_THAT(nearNames(std::string(100'000, 'a'), names), IsEmpty());
}

}  // namespace
}  // namespace kv::formula

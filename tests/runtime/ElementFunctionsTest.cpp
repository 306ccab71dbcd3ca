#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <optional>
#include <random>
#include <string>
#include <string_view>
#include <vector>

#include "kv/errors/StepError.h"
#include "kv/runtime/ElementFunctions.h"
#include "runtime/makeColumn.h"
#include "support/Seed.h"

namespace kv::runtime {

namespace {

using enum ElementType;

constexpr double kTiny = std::numeric_limits<double>::denorm_min();

Column call(std::string_view function, const std::vector<ColumnOperand>& inputs) {
  std::int64_t rows = 1;
  for (const ColumnOperand& input : inputs) {
    if (!input.isScalar) {
      rows = input.column.rows();
    }
  }
  return evaluate(*findElementFunction(function), inputs, rows);
}

/// A constant that the user wrote: a C++ integer is a whole number, a double isn't.
ColumnOperand constant(double value) { return {doubles({value}), true, true}; }
ColumnOperand constant(std::uint64_t value) {
  return {columnOf(UInt64, std::vector{value}), true, true};
}
ColumnOperand constant(int value) {
  return {columnOf(Int64, std::vector<std::int64_t>{value}), true, true};
}

std::string idOfError(std::string_view function, const std::vector<ColumnOperand>& inputs) {
  try {
    call(function, inputs);
  } catch (const errors::StepError& error) {
    return error.id();
  }
  return "none";
}

void expectSame(const std::vector<double>& actual, const std::vector<double>& expected,
                const std::string& what) {
  ASSERT_EQ(actual.size(), expected.size()) << what;
  for (std::size_t i = 0; i < actual.size(); ++i) {
    EXPECT_TRUE(isSame(actual[i], expected[i]))
        << what << ", row " << i << ": got " << actual[i] << ", expected " << expected[i];
  }
}

struct Truth {
  std::string_view function;
  std::vector<double> left, right, expected;
};

void checkTruths(const std::vector<Truth>& truths, ElementType type) {
  for (const Truth& truth : truths) {
    std::vector<ColumnOperand> inputs;
    inputs.push_back({numbers(type, truth.left)});
    if (!truth.right.empty()) {
      inputs.push_back({numbers(type, truth.right)});
    }
    expectSame(numbersOf(call(truth.function, inputs)), truth.expected,
               std::string(truth.function));
  }
}

TEST(ElementFunctions, FloatingTruthTable) {
  const std::vector<Truth> kTruths = {
      {"plus", {1, kInf, kNaN, -0.0}, {2, -kInf, 1, 0}, {3, kNaN, kNaN, 0}},
      {"minus", {1, kInf, kNaN, 0}, {2, kInf, 1, 0}, {-1, kNaN, kNaN, 0}},
      {"times", {2, 0, kInf, -0.0}, {3, kInf, -1, 5}, {6, kNaN, -kInf, -0.0}},
      {"rdivide", {1, -1, 0, 1, 7}, {0, 0, 0, -0.0, 2}, {kInf, -kInf, kNaN, -kInf, 3.5}},
      {"power",
       {2, 0, 0, kNaN, 1, -1, -8, 3},
       {-1, 0, -1, 0, kNaN, kInf, 0.5, 2},
       {0.5, 1, kInf, 1, 1, 1, kNaN, 9}},
      {"mod",
       {5.5, -5.5, 5.5, -5.5, 1, -0.0, 5, kInf, 1, -1},
       {2, 2, -2, -2, 0, 3, kNaN, 2, kInf, kInf},
       {1.5, 0.5, -0.5, -1.5, kNaN, 0, kNaN, kNaN, 1, kInf}},
      {"minimum", {1, kNaN, 2, -kInf}, {2, 1, kNaN, 0}, {1, kNaN, kNaN, -kInf}},
      {"maximum", {1, kNaN, 2, -kInf}, {2, 1, kNaN, 0}, {2, kNaN, kNaN, 0}},
      {"uminus", {1, 0, kInf, kNaN}, {}, {-1, -0.0, -kInf, kNaN}},
      {"abs", {-1.5, -0.0, -kInf, kNaN}, {}, {1.5, 0, kInf, kNaN}},
      {"sign", {-3, 0, kInf, kNaN}, {}, {-1, 0, 1, kNaN}},
      {"sqrt", {4, -1, -0.0, kInf}, {}, {2, kNaN, -0.0, kInf}},
      {"exp", {0, -kInf, kInf, kNaN}, {}, {1, 0, kInf, kNaN}},
      {"log", {1, 0, -1, kInf}, {}, {0, -kInf, kNaN, kInf}},
      {"log2", {8, 0.25}, {}, {3, -2}},
      {"log10", {1000, 0}, {}, {3, -kInf}},
      {"sin", {0, kInf}, {}, {0, kNaN}},
      {"cos", {0, kInf}, {}, {1, kNaN}},
      {"tan", {0, kInf}, {}, {0, kNaN}},
      {"floor", {1.5, -1.5, -0.0, kNaN}, {}, {1, -2, -0.0, kNaN}},
      {"ceil", {1.5, -1.5, kInf, kNaN}, {}, {2, -1, kInf, kNaN}},
      {"round", {0.5, 1.5, 2.5, -0.5, -3.5}, {}, {0, 2, 2, -0.0, -4}},
      {"isnan", {kNaN, kInf, 0}, {}, {1, 0, 0}},
      {"ismissing", {kNaN, 1}, {}, {1, 0}},
      {"isfinite", {kNaN, kInf, -kInf, 0, 1e30}, {}, {0, 0, 0, 1, 1}},
  };
  checkTruths(kTruths, Double);
  checkTruths(kTruths, Single);
}

TEST(ElementFunctions, AComparisonWithAMissingValueIsFalse) {
  const std::vector<double> left{1, 2, 2, kNaN, kNaN, 0, -kInf};
  const std::vector<double> right{2, 1, 2, 1, kNaN, -0.0, kInf};
  const std::vector<Truth> kTruths = {
      {"eq", left, right, {0, 0, 1, 0, 0, 1, 0}},      {"ne", left, right, {1, 1, 0, 0, 0, 0, 1}},
      {"differs", left, right, {1, 1, 0, 1, 1, 0, 1}}, {"lt", left, right, {1, 0, 0, 0, 0, 0, 1}},
      {"le", left, right, {1, 0, 1, 0, 0, 1, 1}},      {"gt", left, right, {0, 1, 0, 0, 0, 0, 0}},
      {"ge", left, right, {0, 1, 1, 0, 0, 1, 0}},
  };
  checkTruths(kTruths, Double);
  checkTruths(kTruths, Single);
}

TEST(ElementFunctions, LogicalTruthTable) {
  const std::vector<double> left{0, 0, 1, 1};
  const std::vector<double> right{0, 1, 0, 1};
  checkTruths({{"and", left, right, {0, 0, 0, 1}},
               {"or", left, right, {0, 1, 1, 1}},
               {"xor", left, right, {0, 1, 1, 0}},
               {"plus", left, right, {0, 1, 1, 1}},
               {"times", left, right, {0, 0, 0, 1}},
               {"lt", left, right, {0, 1, 0, 0}},
               {"power", left, right, {1, 0, 1, 1}},
               {"mod", left, right, {0, 0, 0, 0}},
               {"not", {0, 1}, {}, {1, 0}}},
              Logical);
  // Any value but zero is true, also a missing one.
  checkTruths(
      {{"and", {kNaN, 0, kTiny, -2}, {1, 1, 1, 1}, {1, 0, 1, 1}}, {"not", {kNaN, 0}, {}, {0, 1}}},
      Double);
}

TEST(ElementFunctions, IntegersWrapAndNeverTrap) {
  checkTruths({{"plus", {127, -128}, {1, -1}, {-128, 127}},
               {"minus", {-128}, {1}, {127}},
               {"times", {64, -128}, {2, -1}, {-128, -128}},
               {"power", {3, -2, 2, 5}, {5, 7, 7, 0}, {-13, -128, -128, 1}},
               {"mod", {7, -7, 7, -7, 7, -128}, {3, 3, -3, -3, 0, -1}, {1, 2, -2, -1, 0, 0}},
               {"rdivide", {1, -1, 0}, {0, 0, 0}, {kInf, -kInf, kNaN}},
               {"uminus", {-128, 5}, {}, {-128, -5}},
               {"abs", {-128, -5}, {}, {-128, 5}},
               {"sign", {-128, 0, 9}, {}, {-1, 0, 1}}},
              Int8);
  checkTruths({{"times", {65535}, {65535}, {1}}, {"minus", {0}, {1}, {65535}}}, UInt16);
  checkTruths({{"power", {3}, {200}, {161}}, {"uminus", {1}, {}, {255}}}, UInt8);
  checkTruths({{"times", {-9223372036854775808.0}, {-1}, {-9223372036854775808.0}},
               {"mod", {-9223372036854775808.0}, {-1}, {0}}},
              Int64);
}

TEST(ElementFunctions, TextsCompareByTheirBytes) {
  const Column left = texts({"a", "b", "", std::nullopt, "Z", "\xC3\xA9", "ab"});
  const Column right = texts({"a", "a", "a", "a", std::nullopt, "z", "a"});
  const struct {
    std::string_view function;
    std::vector<double> ofTwo, withA, aWith;
  } kCases[] = {
      {"eq", {1, 0, 0, 0, 0, 0, 0}, {1, 0, 0, 0, 0, 0, 0}, {1, 0, 0, 0, 0, 0, 0}},
      {"ne", {0, 1, 1, 0, 0, 1, 1}, {0, 1, 1, 0, 1, 1, 1}, {0, 1, 1, 0, 1, 1, 1}},
      {"differs", {0, 1, 1, 1, 1, 1, 1}, {0, 1, 1, 1, 1, 1, 1}, {0, 1, 1, 1, 1, 1, 1}},
      {"lt", {0, 0, 1, 0, 0, 0, 0}, {0, 0, 1, 0, 1, 0, 0}, {0, 1, 0, 0, 0, 1, 1}},
      {"le", {1, 0, 1, 0, 0, 0, 0}, {1, 0, 1, 0, 1, 0, 0}, {1, 1, 0, 0, 0, 1, 1}},
      {"gt", {0, 1, 0, 0, 0, 1, 1}, {0, 1, 0, 0, 0, 1, 1}, {0, 0, 1, 0, 1, 0, 0}},
      {"ge", {1, 1, 0, 0, 0, 1, 1}, {1, 1, 0, 0, 0, 1, 1}, {1, 0, 1, 0, 1, 0, 0}},
  };
  const ColumnOperand a{texts({"a"}), true, true};
  for (const auto& row : kCases) {
    const std::string name(row.function);
    expectSame(numbersOf(call(name, {{left}, {right}})), row.ofTwo, name);
    expectSame(numbersOf(call(name, {{left}, a})), row.withA, name + " with a constant");
    expectSame(numbersOf(call(name, {a, {left}})), row.aWith, "a constant " + name);
    expectSame(numbersOf(call(name, {{left.slice(2, 4)}, a})),
               {row.withA.begin() + 2, row.withA.begin() + 6}, name + " of a slice");
  }
  expectSame(numbersOf(call("ismissing", {{left}})), {0, 0, 0, 1, 0, 0, 0}, "ismissing");
}

TEST(ElementFunctions, ConstantsAdaptToTheTypeOfTheColumn) {
  const ColumnOperand bytes{numbers(Int8, {100, -1})};
  const struct {
    std::string_view function;
    std::vector<ColumnOperand> inputs;
    ElementType type;
    std::vector<double> expected;
  } kCases[] = {
      {"plus", {bytes, constant(100)}, Int8, {-56, 99}},
      {"times", {bytes, constant(0.5)}, Double, {50, -0.5}},
      {"times", {bytes, constant(2.0)}, Double, {200, -2}},
      {"rdivide", {bytes, constant(400)}, Double, {0.25, -1.0 / 400}},
      {"times", {{numbers(Single, {1, 2})}, constant(0.1)}, Single, {0.1F, 0.2F}},
      {"times", {bytes, constant(-0.0)}, Double, {-0.0, 0}},
      {"power", {constant(2), {numbers(UInt8, {3, 8})}}, UInt8, {8, 0}},
      {"plus", {constant(1), constant(2)}, Int64, {3}},
      {"or", {bytes, constant(0)}, Logical, {1, 1}},
      // No element of the column can be such a number, but the result is well defined.
      {"lt", {bytes, constant(300)}, Logical, {1, 1}},
      {"gt", {{numbers(UInt64, {0, 1.8e19})}, constant(-1)}, Logical, {1, 1}},
      {"eq", {bytes, constant(99.5)}, Logical, {0, 0}},
  };
  for (const auto& row : kCases) {
    const Column result = call(row.function, row.inputs);
    EXPECT_EQ(result.type(), row.type) << row.function;
    expectSame(numbersOf(result), row.expected, std::string(row.function));
  }
}

TEST(ElementFunctions, IntegersAreComparedExactlyWithAnyConstant) {
  constexpr std::int64_t kBeyondDouble = 9007199254740993;  // 2^53 + 1
  const ColumnOperand large{columnOf<std::int64_t>(Int64, {kBeyondDouble, -kBeyondDouble})};
  const ColumnOperand largest{columnOf<std::uint64_t>(UInt64, {18446744073709551615U, 0})};
  const struct {
    std::string_view function;
    std::vector<ColumnOperand> inputs;
    std::vector<double> expected;
  } kCases[] = {
      {"gt", {large, constant(9007199254740992.0)}, {1, 0}},
      {"eq", {large, constant(std::uint64_t{kBeyondDouble})}, {1, 0}},
      {"eq", {large, constant(std::uint64_t{kBeyondDouble - 1})}, {0, 0}},
      {"lt", {large, constant(std::uint64_t{1} << 63)}, {1, 1}},
      {"lt", {constant(0x1p63), large}, {0, 0}},
      {"ge", {large, constant(-0x1p64)}, {1, 1}},
      {"eq", {largest, constant(std::uint64_t{18446744073709551615U})}, {1, 0}},
      {"eq", {largest, constant(0x1p64)}, {0, 0}},
      {"ne", {largest, constant(-1)}, {1, 1}},
      {"gt", {largest, constant(0.5)}, {1, 0}},
      {"lt", {largest, constant(kNaN)}, {0, 0}},
  };
  for (const auto& row : kCases) {
    expectSame(numbersOf(call(row.function, row.inputs)), row.expected, std::string(row.function));
  }
  const ColumnOperand beyond = constant(std::uint64_t{kBeyondDouble});
  EXPECT_EQ(idOfError("lt", {{doubles({1})}, beyond}), "KALVEX:array:NotExact");
  EXPECT_EQ(idOfError("rdivide", {large, beyond}), "KALVEX:array:NotExact");
}

TEST(ElementFunctions, ConstantsCombineToOneConstant) {
  const struct {
    std::string_view function;
    std::vector<ColumnOperand> inputs;
    ElementType type;
    double expected;
  } kCases[] = {
      {"times", {constant(60), constant(60)}, Int64, 3600},
      {"times", {constant(60), constant(60.0)}, Double, 3600},
      {"rdivide", {constant(6), constant(2)}, Double, 3},
      {"power", {constant(2), constant(-1)}, Double, 0.5},
      {"power", {constant(2), constant(70)}, Double, 0x1p70},
      {"lt", {constant(1), constant(2.5)}, Logical, 1},
      {"uminus", {constant(0.0)}, Double, -0.0},
      {"sqrt", {{logicals({1}), true, true}}, Double, 1},
  };
  for (const auto& row : kCases) {
    const ColumnOperand folded = foldConstants(*findElementFunction(row.function), row.inputs);
    EXPECT_TRUE(folded.isWeak && folded.isScalar) << row.function;
    EXPECT_EQ(folded.column.type(), row.type) << row.function;
    expectSame(numbersOf(folded.column), {row.expected}, std::string(row.function));
  }
}

/// One row of a function, from one row of each input: the value if no input is missing, and the
/// rules of missing integers and logicals.
double rowOf(const ElementFunction& function, const std::vector<ElementType>& types,
             const std::vector<double>& values) {
  const auto first = values.front();
  if (function.rule == TypeRule::Choice) {
    const double chosen = first != 0 ? values[1] : values[2];
    return isMissing(first) ? kNaN : chosen;
  }
  const bool isUnknown = std::ranges::any_of(values, isMissing);
  if (function.rule == TypeRule::Class && isUnknown) {
    return function.name == "isfinite" ? 0 : 1;
  }
  const auto isKnown = [&](double truth) {
    return std::ranges::any_of(
        values, [=](double value) { return !isMissing(value) && (value != 0) == (truth != 0); });
  };
  if (function.name == "and" || function.name == "or") {
    const double deciding = function.name == "or";
    return isKnown(deciding) ? deciding : isUnknown ? kNaN : 1 - deciding;
  }
  std::vector<ColumnOperand> inputs;
  for (std::size_t i = 0; i < values.size(); ++i) {
    inputs.push_back({numbers(types[i], {isUnknown ? 1 : values[i]})});
  }
  const double value = numbersOf(evaluate(function, inputs, 1))[0];
  return isUnknown ? kNaN : value;
}

TEST(ElementFunctions, MissingIntegersAndLogicalsAgreeWithAPlainReference) {
  std::mt19937_64 random(kv::test::drawSeed());
  const auto draw = [&](std::size_t rows, ElementType type) {
    std::vector<double> values(rows);
    for (double& value : values) {
      const auto drawn = static_cast<double>(random() % (type == Logical ? 2 : 4));
      value = random() % 3 == 0 && !isFloating(type) ? kNaN : drawn;
    }
    return values;
  };
  constexpr std::size_t kRows = 203;
  constexpr ElementType kTypes[] = {Logical, Int8, UInt16, Int64, Double};
  int asked = 0;
  for (const ElementFunction& function : elementFunctions()) {
    for (int round = 0; round < 12; ++round) {
      std::vector<ElementType> types;
      std::vector<OperandType> operands;
      std::vector<ColumnOperand> inputs;
      std::vector<std::vector<double>> values;
      for (std::size_t i = 0; i < function.arity; ++i) {
        const bool isCondition = i == 0 && function.rule == TypeRule::Choice;
        const bool isScalar = random() % 4 == 0;
        types.push_back(isCondition ? Logical : kTypes[random() % std::size(kTypes)]);
        values.push_back(draw(isScalar ? 1 : kRows + 9, types.back()));
        const Column all = numbers(types.back(), values.back());
        inputs.push_back({isScalar ? all : all.slice(5, kRows), isScalar});
        operands.push_back({types.back()});
      }
      try {
        resolve(function, operands);
      } catch (const errors::StepError&) {
        continue;  // isn't defined for these types
      }
      std::vector<double> expected;
      for (std::size_t row = 0; row < kRows; ++row) {
        std::vector<double> ofRow;
        for (std::size_t i = 0; i < function.arity; ++i) {
          ofRow.push_back(values[i][inputs[i].isScalar ? 0 : row + 5]);
        }
        expected.push_back(rowOf(function, types, ofRow));
      }
      expectSame(numbersOf(evaluate(function, inputs, kRows)), expected,
                 std::string(function.name));
      ++asked;
    }
  }
  EXPECT_GT(asked, 200);
}

TEST(ElementFunctions, MissingExponentsAndConditionsOfTextsAreNotLookedAt) {
  const Column exponents = numbers(Int8, {kNaN, 2});
  std::memset(exponents.data()->buffers[1]->mutable_data(), -1, 1);
  expectSame(numbersOf(call("power", {{numbers(Int8, {3, 3})}, {exponents}})), {kNaN, 9}, "power");
  const Column chosen = call("where", {{numbers(Logical, {kNaN, 1, 0})},
                                       {texts({"a", "b", "c"})},
                                       {texts({"x", "y", std::nullopt})}});
  EXPECT_EQ(textsOf(chosen),
            (std::vector<std::optional<std::string>>{std::nullopt, "b", std::nullopt}));
}

TEST(ElementFunctions, AChoiceTakesEachRowFromOneSide) {
  const ColumnOperand flags{logicals({1, 0, 1, 0})};
  const ColumnOperand bytes{numbers(Int8, {1, 2, 3, 4})};
  const struct {
    std::vector<ColumnOperand> inputs;
    ElementType type;
    std::vector<double> expected;
  } kCases[] = {
      {{flags, bytes, {numbers(UInt8, {200, 201, 202, 203})}}, Int16, {1, 201, 3, 203}},
      {{flags, {doubles({kNaN, 1, -0.0, kInf})}, constant(0)}, Double, {kNaN, 0, -0.0, 0}},
      {{flags, constant(-1), bytes}, Int8, {-1, 2, -1, 4}},
      {{flags, constant(1), constant(0)}, Int64, {1, 0, 1, 0}},
      {{{logicals({0}), true, true}, bytes, flags}, Int8, {1, 0, 1, 0}},
  };
  for (const auto& row : kCases) {
    const Column result = call("where", row.inputs);
    EXPECT_EQ(result.type(), row.type);
    expectSame(numbersOf(result), row.expected, std::string(elementTypeName(row.type)));
  }
  using Texts = std::vector<std::optional<std::string>>;
  const Column words = texts({"skipped", "a", std::nullopt, std::nullopt, "d"}).slice(1, 4);
  const ColumnOperand other{texts({"other"}), true};
  EXPECT_EQ(textsOf(call("where", {flags, {words}, other})),
            (Texts{"a", "other", std::nullopt, "other"}));
  EXPECT_EQ(textsOf(call("where", {flags, other, {words}})), (Texts{"other", {}, "other", "d"}));
}

TEST(ElementFunctions, AChoiceGoesOverBlockEdgesInEveryMixOfScalars) {
  constexpr std::size_t kRows = kBlockElements + 3;
  std::vector<double> condition;
  std::vector<double> count;
  for (std::size_t row = 0; row < kRows; ++row) {
    condition.push_back(row % 3 == 0 ? 1 : 0);
    count.push_back(static_cast<double>(row));
  }
  const auto mixed = [](const Column& column, bool isScalar) {
    return ColumnOperand{isScalar ? column.slice(6, 1) : column, isScalar};
  };
  for (const unsigned scalars : {0U, 1U, 2U, 3U, 4U, 5U, 6U, 7U}) {
    const bool isScalar[] = {(scalars & 1) != 0, (scalars & 2) != 0, (scalars & 4) != 0};
    const std::vector<ColumnOperand> inputs = {mixed(numbers(Logical, condition), isScalar[0]),
                                               mixed(numbers(Int32, count), isScalar[1]),
                                               mixed(numbers(Single, count), isScalar[2])};
    const auto all = numbersOf(evaluate(*findElementFunction("where"), inputs, kRows));
    for (std::size_t row = 0; row < kRows; ++row) {
      const bool isTrue = condition[isScalar[0] ? 6 : row] == 1;
      const double expected = count[isScalar[isTrue ? 1 : 2] ? 6 : row];
      ASSERT_EQ(all[row], expected) << "scalars " << scalars << ", row " << row;
    }
  }
}

TEST(ElementFunctions, BadInputsAreRefused) {
  const ColumnOperand bytes{numbers(Int8, {1, 2})};
  EXPECT_EQ(idOfError("plus", {bytes, constant(300)}), "KALVEX:function:OutOfRange");
  EXPECT_EQ(idOfError("power", {bytes, constant(-1)}), "KALVEX:function:NegativePower");
  EXPECT_EQ(idOfError("power", {bytes, {numbers(Int16, {1, -3})}}),
            "KALVEX:function:NegativePower");
  const std::vector<ColumnOperand> noRows{{numbers(Int8, {})}, {numbers(Int8, {-1}), true}};
  EXPECT_EQ(evaluate(*findElementFunction("power"), noRows, 0).rows(), 0);
  EXPECT_EQ(idOfError("plus", {bytes, {doubles({1, 2, 3})}}), "KALVEX:function:RowCounts");
  EXPECT_EQ(idOfError("plus", {bytes, {doubles({1, 2}), true}}), "KALVEX:function:RowCounts");
  EXPECT_EQ(idOfError("plus", {{texts({"a", "b"})}, bytes}), "KALVEX:function:BadTypes");
  const ColumnOperand flags{logicals({1, 0})};
  EXPECT_EQ(idOfError("where", {flags, bytes, constant(300)}), "KALVEX:function:OutOfRange");
  EXPECT_EQ(idOfError("where", {flags, bytes, {doubles({1})}}), "KALVEX:function:RowCounts");
}

/// Every pair of numeric types, in every way to spread, over block edges, against one row at a
/// time.
TEST(ElementFunctions, BlocksConversionsAndSpreadsAgreeWithSingleRows) {
  std::mt19937_64 random(kv::test::drawSeed());
  const auto small = [&](std::size_t count) {
    std::vector<double> values(count);
    for (double& value : values) {
      value = static_cast<double>(random() % 5);
    }
    return values;
  };
  const ElementFunction& minus = *findElementFunction("minus");
  const ElementFunction& le = *findElementFunction("le");
  constexpr std::size_t kRows = kBlockElements + 3;
  for (std::size_t a = 1; a < kNumericTypes; ++a) {
    for (std::size_t b = 0; b < kNumericTypes; ++b) {
      const Column left = numbers(static_cast<ElementType>(a), small(kRows + 5)).slice(5, kRows);
      const Column right = numbers(static_cast<ElementType>(b), small(kRows));
      for (const auto* function : {&minus, &le}) {
        for (const int spread : {0, 1, 2, 3}) {
          const ColumnOperand x{spread & 1 ? left.slice(7, 1) : left, (spread & 1) != 0};
          const ColumnOperand y{spread & 2 ? right.slice(9, 1) : right, (spread & 2) != 0};
          const auto all = numbersOf(evaluate(*function, std::vector{x, y}, kRows));
          for (const std::int64_t row : {std::int64_t{0}, std::int64_t{4095}, std::int64_t{4098}}) {
            const ColumnOperand xRow{x.isScalar ? x.column : left.slice(row, 1)};
            const ColumnOperand yRow{y.isScalar ? y.column : right.slice(row, 1)};
            const auto one = numbersOf(evaluate(*function, std::vector{xRow, yRow}, 1));
            ASSERT_TRUE(isSame(all[static_cast<std::size_t>(row)], one[0]))
                << function->name << " of " << elementTypeName(left.type()) << " and "
                << elementTypeName(right.type()) << ", spread " << spread << ", row " << row;
          }
        }
      }
    }
  }
  EXPECT_EQ(evaluate(minus, std::vector<ColumnOperand>{{doubles({})}, constant(1)}, 0).rows(), 0);
}

}  // namespace
}  // namespace kv::runtime

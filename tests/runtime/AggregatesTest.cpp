#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <random>
#include <string>
#include <string_view>
#include <vector>

#include "aggregate/FixedTree.h"
#include "kv/errors/StepError.h"
#include "kv/runtime/Aggregates.h"
#include "runtime/makeColumn.h"
#include "support/Seed.h"

namespace kv::runtime {

namespace {

using enum ElementType;
using enum MissingRule;

AggregatePartial partialOf(std::string_view name, MissingRule rule, const Column& column) {
  AggregateState state(findAggregateFunction(name)->kind, rule);
  state.update(column, RowOrdinals(0, column.rows()));
  return state.finish();
}

/// The result for partitions with these columns.
Column answer(std::string_view name, MissingRule rule, const std::vector<Column>& partitions) {
  std::vector<AggregatePartial> partials;
  for (const Column& column : partitions) {
    partials.push_back(partialOf(name, rule, column));
  }
  return combinePartials(findAggregateFunction(name)->kind, partials);
}

std::string idOfError(const auto& action) {
  try {
    action();
  } catch (const errors::StepError& error) {
    return error.id();
  }
  return "none";
}

TEST(Aggregates, AnswersForSmallColumns) {
  const double root = std::sqrt(2.5);
  const struct {
    std::string_view name;
    Column column;
    double skipped, propagated;
    ElementType type;
  } kCases[] = {
      {"sum", doubles({1, 2, kNaN, 3}), 6, kNaN, Double},
      {"mean", doubles({1, 2, kNaN, 3}), 2, kNaN, Double},
      {"min", doubles({1, 2, kNaN, -3}), -3, kNaN, Double},
      {"max", doubles({1, 2, kNaN, -3}), 2, kNaN, Double},
      {"count", doubles({1, 2, kNaN, -3}), 3, 3, Int64},
      {"std", doubles({1, 2, 3, 4, 5, kNaN}), root, kNaN, Double},
      {"var", doubles({1, 2, 3, 4, 5, kNaN}), 2.5, kNaN, Double},
      {"stdp", doubles({1, 3, kNaN}), 1, kNaN, Double},
      {"varp", doubles({7}), 0, 0, Double},
      {"varp", doubles({}), kNaN, kNaN, Double},
      {"sum", doubles({}), 0, 0, Double},
      {"mean", doubles({kNaN}), kNaN, kNaN, Double},
      {"min", doubles({}), kNaN, kNaN, Double},
      {"max", numbers(Int8, {}), kNaN, kNaN, Int8},
      {"min", logicals({}), kNaN, kNaN, Logical},
      {"sum", numbers(Int8, {}), 0, 0, Int64},
      {"std", doubles({7}), kNaN, kNaN, Double},
      {"var", doubles({7, 7, 7}), 0, 0, Double},
      {"sum", doubles({kInf, 1}), kInf, kInf, Double},
      {"sum", doubles({kInf, -kInf}), kNaN, kNaN, Double},
      {"min", doubles({kInf, kInf}), kInf, kInf, Double},
      {"max", doubles({-0.0}), 0, 0, Double},
      {"sum", numbers(Single, {0.5, 0.25}), 0.75, 0.75, Single},
      {"max", numbers(Single, {0.5, kNaN}), 0.5, kNaN, Single},
      {"min", numbers(Int16, {5, -7, 9}), -7, -7, Int16},
      {"mean", numbers(Int16, {5, -7, 8}), 2, 2, Double},
      {"var", numbers(UInt8, {1, 2, 3}), 1, 1, Double},
      {"sum", logicals({1, 0, 1}), 2, 2, Int64},
      {"sum", numbers(Int8, {100, 100, -1}), 199, 199, Int64},
      {"sum", numbers(UInt32, {4e9, 4e9}), 8e9, 8e9, UInt64},
      {"mean", logicals({1, 0, 1, 0}), 0.5, 0.5, Double},
      {"any", logicals({0, 0, 1}), 1, 1, Logical},
      {"all", logicals({1, 0, 1}), 0, 0, Logical},
      {"any", logicals({}), 0, 0, Logical},
      {"all", logicals({}), 1, 1, Logical},
      {"count", texts({"a", std::nullopt}), 1, 1, Int64},
      // Columns with missing integers and logicals.
      {"any", numbers(Logical, {0, kNaN, 1}), 1, kNaN, Logical},
      {"all", numbers(Logical, {1, kNaN, 1}), 1, kNaN, Logical},
      {"mean", numbers(Logical, {1, kNaN, 0}), 0.5, kNaN, Double},
      {"sum", missingColumn(Int8, 3), 0, kNaN, Int64},
      {"mean", missingColumn(UInt64, 3), kNaN, kNaN, Double},
      {"max", missingColumn(Int8, 3), kNaN, kNaN, Int8},
      {"count", missingColumn(Int8, 3), 0, 0, Int64},
      {"std", missingColumn(Int8, 3), kNaN, kNaN, Double},
      {"any", missingColumn(Logical, 3), 0, kNaN, Logical},
      {"all", missingColumn(Logical, 3), 1, kNaN, Logical},
  };
  for (const auto& row : kCases) {
    for (const MissingRule rule : {Skip, Propagate}) {
      const Column result = answer(row.name, rule, {row.column});
      const double expected = rule == Skip ? row.skipped : row.propagated;
      EXPECT_EQ(result.type(), row.type) << row.name;
      EXPECT_TRUE(isSame(numbersOf(result)[0], expected))
          << row.name << " of " << elementTypeName(row.column.type()) << ": got "
          << numbersOf(result)[0] << ", expected " << expected;
    }
  }
}

TEST(Aggregates, OfIntegersWithMissingValuesAgreeWithThoseOfDoublesWithNaN) {
  std::mt19937_64 random(kv::test::drawSeed());
  std::vector<double> values(9000);
  for (double& value : values) {
    value = random() % 3 == 0 ? kNaN : static_cast<double>(random() % 100);
  }
  for (const AggregateFunction& function : aggregateFunctions()) {
    if (function.kind == AggregateKind::Any || function.kind == AggregateKind::All) {
      continue;
    }
    for (const MissingRule rule : {Skip, Propagate}) {
      const Column column = numbers(Int32, values);
      AggregateState state(function.kind, rule);
      for (const auto& [first, rows] : {std::pair(0, 17), {17, 5000}, {5017, 3983}}) {
        state.update(column.slice(first, rows), RowOrdinals(first, rows));
      }
      const AggregatePartial partial = state.finish();
      const double actual = numbersOf(combinePartials(function.kind, {&partial, 1}))[0];
      const double expected = numbersOf(answer(function.name, rule, {doubles(values)}))[0];
      EXPECT_TRUE(isSame(actual, expected)) << function.name << ": " << actual << ", " << expected;
    }
  }
}

TEST(Aggregates, IntegersAreExact) {
  const std::int64_t large = std::numeric_limits<std::int64_t>::max();
  const Column column = columnOf<std::int64_t>(Int64, {large, large, 9007199254740993, -large});
  EXPECT_EQ(answer("max", Skip, {column}).values<std::int64_t>()[0], large);
  const Column less = columnOf<std::int64_t>(Int64, {-large, 2});
  EXPECT_EQ(answer("sum", Skip, {column, less}).values<std::int64_t>()[0], 9007199254740995);
  const std::uint64_t largest = std::numeric_limits<std::uint64_t>::max();
  const Column whole = columnOf<std::uint64_t>(UInt64, {largest, largest - 1});
  EXPECT_EQ(answer("min", Skip, {whole}).values<std::uint64_t>()[0], largest - 1);
  EXPECT_EQ(numbersOf(answer("mean", Skip, {whole}))[0], 18446744073709551616.0);
  const Column least = columnOf<std::int64_t>(Int64, {-large, -1, -1});
  const Column one = columnOf<std::uint64_t>(UInt64, {0, 1});
  const struct {
    std::vector<Column> partitions;
    std::string error;
  } kSums[] = {
      {{least.slice(0, 2)}, "none"},
      {{whole.slice(0, 1), one.slice(0, 1)}, "none"},
      {{column}, "KALVEX:function:Overflow"},
      {{least}, "KALVEX:function:Overflow"},
      {{whole.slice(0, 1), one}, "KALVEX:function:Overflow"},
  };
  for (const auto& row : kSums) {
    EXPECT_EQ(idOfError([&] { answer("sum", Skip, row.partitions); }), row.error);
  }
}

TEST(Aggregates, TextsHaveExtremes) {
  const Column some = texts({"pear", std::nullopt, "apple"});
  const Column more = texts({"\xC3\xA9", "b"});
  const Column none = texts({std::nullopt});
  EXPECT_EQ(textsOf(answer("min", Skip, {some, more}))[0], "apple");
  EXPECT_EQ(textsOf(answer("max", Skip, {none, some, more}))[0], "\xC3\xA9");
  EXPECT_EQ(textsOf(answer("min", Propagate, {more}))[0], "b");
  EXPECT_EQ(textsOf(answer("min", Propagate, {some, more}))[0], std::nullopt);
  EXPECT_EQ(textsOf(answer("min", Skip, {none}))[0], std::nullopt);
}

TEST(Aggregates, APartitionWithoutValuesChangesNothing) {
  const std::vector<double> values{0.1, 0.7, 1e17, -3, 0.3};
  for (const AggregateFunction& function : aggregateFunctions()) {
    const bool isTruth = function.kind == AggregateKind::Any || function.kind == AggregateKind::All;
    const Column column = isTruth ? logicals({0, 1}) : doubles(values);
    AggregatePartial untouched;
    untouched.kind = function.kind;
    const auto full = partialOf(function.name, Skip, column);
    const auto empty = partialOf(function.name, Skip, column.slice(0, 0));
    const AggregatePartial partials[] = {full, empty, untouched};
    const double expected = numbersOf(combinePartials(function.kind, {&full, 1}))[0];
    EXPECT_TRUE(isSame(numbersOf(combinePartials(function.kind, partials))[0], expected))
        << function.name;
  }
}

TEST(Aggregates, UndefinedCombinationsAreRefused) {
  const std::string kBadTypes = "KALVEX:function:BadTypes";
  EXPECT_EQ(idOfError([] { answer("sum", Skip, {texts({"a"})}); }), kBadTypes);
  EXPECT_EQ(idOfError([] { answer("any", Skip, {doubles({1})}); }), kBadTypes);
  EXPECT_EQ(idOfError([] { answer("sum", Skip, {doubles({1}), numbers(Int8, {1})}); }), kBadTypes);
  EXPECT_EQ(idOfError([] {
              AggregateState state(AggregateKind::Sum, Skip);
              state.update(doubles({1}), RowOrdinals(0, 2));
            }),
            "KALVEX:function:RowCounts");
  EXPECT_EQ(idOfError([] {
              const auto partial = partialOf("sum", Skip, doubles({1}));
              combinePartials(AggregateKind::Mean, {&partial, 1});
            }),
            "KALVEX:function:BadPartial");
}

TEST(AggregatePartial, BytesRoundTripAndTruncatedOnesAreRefused) {
  const struct {
    std::string_view name;
    Column column;
  } kCases[] = {{"sum", doubles({1, 0.1, kNaN})},   {"std", doubles({1, 2, 4})},
                {"mean", numbers(Int64, {-1, -2})}, {"min", texts({"b", "a-text", std::nullopt})},
                {"max", texts({std::nullopt})},     {"count", texts({"a"})}};
  for (const auto& row : kCases) {
    const AggregatePartial partial = partialOf(row.name, Propagate, row.column);
    const std::string bytes = partial.toBytes();
    const AggregatePartial copy = AggregatePartial::fromBytes(bytes);
    EXPECT_EQ(copy.toBytes(), bytes) << row.name;
    EXPECT_EQ(copy.type, partial.type) << row.name;
    EXPECT_EQ(copy.count, partial.count) << row.name;
    EXPECT_EQ(copy.words, partial.words) << row.name;
    EXPECT_EQ(copy.text, partial.text) << row.name;
    for (std::size_t length = 0; length < 32; ++length) {
      EXPECT_EQ(idOfError([&] {
                  AggregatePartial::fromBytes({bytes.data(), length});
                }),
                "KALVEX:function:BadPartial")
          << row.name << " cut to " << length;
    }
  }
}

TEST(AggregatePartial, ForeignBytesAreRefused) {
  const std::string bytes = partialOf("sum", Skip, doubles({1})).toBytes();
  const auto with = [&](std::size_t at, int value) {
    std::string changed = bytes;
    changed[at] = static_cast<char>(value);
    return changed;
  };
  const std::string kForeign[] = {with(0, 9), with(1, 77), with(2, 2),     with(3, 12),
                                  with(4, 2), with(6, 1),  with(15, 0x80), bytes + "x"};
  for (const std::string& foreign : kForeign) {
    EXPECT_EQ(idOfError([&] { AggregatePartial::fromBytes(foreign); }),
              "KALVEX:function:BadPartial");
  }
}

/// Records how it was merged.
struct Trace {
  std::string text;
  void merge(const Trace& later) { text = "(" + text + " " + later.text + ")"; }
};

TEST(FixedTree, ItsShapeDependsOnlyOnTheNumbersOfLeaves) {
  const struct {
    std::vector<std::int64_t> leaves;
    std::string shape;
  } kCases[] = {{{}, ""},
                {{5}, "5"},
                {{0, 1, 2, 3, 4, 5}, "(((0 1) (2 3)) (4 5))"},
                {{0, 3, 4}, "((0 3) 4)"},
                {{1, 2, 3, 1000000}, "((1 (2 3)) 1000000)"},
                {{3, 4, 5, 6, 7, 8}, "((3 ((4 5) (6 7))) 8)"}};
  for (const auto& row : kCases) {
    FixedTree<Trace> tree;
    for (const std::int64_t leaf : row.leaves) {
      tree.push(leaf, {std::to_string(leaf)});
    }
    EXPECT_EQ(tree.finish().value_or(Trace{}).text, row.shape);
  }
}

}  // namespace
}  // namespace kv::runtime

#include "kv/runtime/selectRows.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

#include "kv/errors/StepError.h"
#include "runtime/makeColumn.h"
#include "support/Seed.h"

namespace kv::runtime {

namespace {

using testing::ElementsAre;

Chunk fruit() {
  Chunk chunk;
  chunk.partition = 3;
  chunk.ordinals = RowOrdinals(100, 4);
  chunk.names = std::make_shared<std::vector<std::string>>(std::vector<std::string>{"n", "name"});
  chunk.columns = {doubles({0, 1, 2, 3, 4}).slice(1, 4),
                   texts({"x", "fig", std::nullopt, "", "date"}).slice(1, 4)};
  return chunk;
}

TEST(SelectRows, KeptRowsKeepTheirOrdinals) {
  const Chunk kept = selectRows(fruit(), logicals({0, 1, 0, 1, 1, 0}).slice(1, 4));
  EXPECT_EQ(kept.partition, 3);
  EXPECT_EQ(kept.rows(), 3);
  EXPECT_EQ(kept.ordinals.at(0), 100);
  EXPECT_EQ(kept.ordinals.at(2), 103);
  EXPECT_THAT(numbersOf(kept.columns[0]), ElementsAre(1, 3, 4));
  EXPECT_THAT(textsOf(kept.columns[1]), ElementsAre("fig", "", "date"));

  const Chunk twice = selectRows(kept, logicals({0, 1, 1}));
  EXPECT_EQ(twice.ordinals.at(0), 102);
  EXPECT_EQ(*twice.names, *fruit().names);
  EXPECT_THAT(textsOf(selectRows(fruit(), logicals({0, 1, 0, 1})).columns[1]),
              ElementsAre(std::nullopt, "date"));
}

TEST(SelectRows, AllAndNoneAreSpecialCases) {
  const Chunk chunk = fruit();
  const Chunk all = selectRows(chunk, logicals({1, 1, 1, 1}));
  EXPECT_EQ(all.columns[0].data(), chunk.columns[0].data());
  const Chunk none = selectRows(chunk, logicals({0, 0, 0, 0}));
  EXPECT_EQ(none.rows(), 0);
  EXPECT_EQ(none.columns[1].rows(), 0);
  EXPECT_EQ(selectRows(none, logicals({})).rows(), 0);
}

TEST(SelectRows, EveryTypeAgreesWithAPlainLoop) {
  std::mt19937_64 random(kv::test::drawSeed());
  constexpr std::size_t kRows = 1234;
  Chunk chunk;
  chunk.ordinals = RowOrdinals(7, kRows);
  std::vector<double> values(kRows);
  std::vector<double> keep(kRows);
  std::vector<double> expected;
  for (std::size_t row = 0; row < kRows; ++row) {
    values[row] = random() % 5 == 0 ? kNaN : static_cast<double>(random() % 2);
    keep[row] = random() % 5 == 0 ? kNaN : static_cast<double>(random() % 2);
    if (keep[row] == 1) {
      expected.push_back(values[row]);
    }
  }
  for (std::size_t type = 0; type < std::tuple_size_v<NumericTypes>; ++type) {
    chunk.columns.push_back(numbers(static_cast<ElementType>(type), values));
  }
  for (const Column& column : selectRows(chunk, numbers(ElementType::Logical, keep)).columns) {
    EXPECT_THAT(numbersOf(column), testing::Pointwise(testing::NanSensitiveDoubleEq(), expected))
        << elementTypeName(column.type());
  }
}

TEST(SelectRows, OnlyALogicalConditionOfTheSameLengthIsAccepted) {
  const auto refusal = [](const Column& keep) {
    try {
      selectRows(fruit(), keep);
    } catch (const errors::StepError& error) {
      return error.id() + " " + error.arguments().back();
    }
    return std::string("none");
  };
  EXPECT_EQ(refusal(doubles({1, 0, 1, 0})), "KALVEX:function:BadTypes a double condition");
  EXPECT_EQ(refusal(logicals({1, 0})), "KALVEX:function:RowCounts 2");
}

}  // namespace
}  // namespace kv::runtime

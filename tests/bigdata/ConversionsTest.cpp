#include "CoreSession.h"
#include "PartitionedArrayOptions.h"
#include "executor/FixedNumPartitionStrategy.h"
#include "ki/conversions.h"
#include "ki/createManagedObject.h"
#include "kx/string.h"

namespace bigdata {

namespace {

using executor::FixedNumPartitionStrategy;
using executor::PartitionStrategy;
using kv::host::makeChars;
using kv::host::makeDouble;
using kv::host::makeEmptyDouble;
using kv::host::makeLogical;
using kv::host::makeString;
using StrategyPtr = ki::KalvexManagedPtr<PartitionStrategy>;

constexpr std::size_t kNotACount = std::size_t{1} << 63;

class Conversions : public CoreSession {
 protected:
  Value matrixOf(kxClassID classId, std::vector<std::size_t> dimensions) {
    return matrix::from_kalvex(kxCreateNumericArray(dimensions, classId));
  }
  std::string missing(std::string_view expected, std::string_view came) {
    return "KALVEX:validateattributes:invalidType | Input | " + std::string(expected) + " | " +
           std::string(came);
  }
};

TEST_F(Conversions, NumbersComeFromNumericAndLogicalScalarsOnly) {
  EXPECT_EQ(ki::toDouble(makeDouble(2.5).get()), 2.5);
  EXPECT_EQ(ki::toDouble(makeLogical(true).get()), 1.0);
  EXPECT_EQ(ki::toDouble(matrixOf(kxINT8_CLASS, {1, 1}).get()), 0.0);
  EXPECT_EQ(ki::toDouble(nullptr, 7.0), 7.0);

  std::pair<Value, std::string_view> refused[] = {
      {nullptr, "[]"},
      {makeEmptyDouble(), "0x0 double"},
      {matrixOf(kxDOUBLE_CLASS, {3, 2}), "3x2 double"},
      {matrixOf(kxSINGLE_CLASS, {3, 2, 4}), "3x2x4 single"},
      {makeChars("7"), "1x1 char"}};
  for (const auto& [value, came] : refused) {
    EXPECT_EQ(errorOf([&] { ki::toDouble(value.get()); }), missing("scalar double", came));
  }
}

TEST_F(Conversions, FlagsComeFromNumbersToo) {
  EXPECT_FALSE(ki::toLogical(makeLogical(false).get()));
  EXPECT_TRUE(ki::toLogical(nullptr, true));
  EXPECT_EQ(errorOf([&] { ki::toLogical(makeChars("1").get()); }), missing("scalar logical", ""));
}

TEST_F(Conversions, WhatIsNoNumberAtAllGivesTheCountThatCallersRefuse) {
  EXPECT_EQ(ki::toSize(kv::host::makeCell({}).get()), kNotACount);
  EXPECT_EQ(ki::toSize(nullptr), kNotACount);
  EXPECT_EQ(ki::toSize(makeLogical(true).get()), 1u);
}

TEST_F(Conversions, TextIsACharRowOrAStringScalar) {
  const std::string notText = "KALVEX:string:MustBeStringScalarOrCharacterVector";
  EXPECT_EQ(ki::toText(makeChars("ab").get()), u"ab");
  EXPECT_EQ(ki::toText(makeChars("").get()), u"");
  EXPECT_EQ(ki::toText(makeString("gr\xC3\xBC\xC3\x9F").get()), u"gr\u00FC\u00DF");

  const Value grid = matrixOf(kxCHAR_CLASS, {2, 3});
  EXPECT_EQ(ki::toText(grid.get(), ki::TextShape::AnyChars).size(), 6u);
  const Value refused[] = {matrixOf(kxCHAR_CLASS, {2, 3}), nullptr, makeDouble(1),
                           matrixOf(kxCHAR_CLASS, {0, 3}),
                           Torvane::String::createStringArray(2, 1)};
  for (const Value& value : refused) {
    EXPECT_EQ(errorOf([&] { ki::toText(value.get()); }), notText);
  }
  EXPECT_EQ(errorOf([&] { ki::toText(Torvane::String::createStringArray(1, 1).get()); }),
            "KALVEX:string:MissingNotSupported");
}

TEST_F(Conversions, ARowOfFlagsIsALogicalRowOfAnyLength) {
  using Flags = ki::typed_row_vector<bool>;
  const std::string refused = "KALVEX:validateattributes:invalidType | Argument | row vector | ";
  EXPECT_EQ(ki::fromArray<Flags>(matrixOf(kxLOGICAL_CLASS, {1, 3}).get()).size(), 3u);
  EXPECT_EQ(ki::fromArray<Flags>(matrixOf(kxLOGICAL_CLASS, {1, 0}).get()).size(), 0u);
  EXPECT_TRUE(ki::fromArray<Flags>(makeLogical(true).get())[0]);
  EXPECT_EQ(errorOf([&] {
              ki::fromArray<Flags>(matrixOf(kxLOGICAL_CLASS, {3, 1}).get());
            }),
            refused + "3x1 logical");
  EXPECT_EQ(errorOf([&] { ki::fromArray<Flags>(makeDouble(1).get()); }), refused + "1x1 double");
  EXPECT_EQ(errorOf([&] { ki::fromArray<Flags>(nullptr); }), refused + "[]");
}

TEST_F(Conversions, NullAndTheEmptyDoubleAreTheNullPointerAndNothingElseIs) {
  const std::string name = "scalar kalvex.bigdata.internal.executor.PartitionStrategy";
  EXPECT_EQ(ki::fromArray<StrategyPtr>(nullptr).get(), nullptr);
  EXPECT_EQ(ki::fromArray<StrategyPtr>(makeEmptyDouble().get()).get(), nullptr);
  EXPECT_EQ(ki::toArray(StrategyPtr()), nullptr);

  EXPECT_EQ(errorOf([&] { ki::fromArray<StrategyPtr>(kv::host::makeCell({}).get()); }),
            missing(name, "cell"));
  EXPECT_EQ(errorOf([&] { ki::fromArray<StrategyPtr>(makeDouble(3).get()); }),
            missing(name, "double"));
  const Value options = make("PartitionedArrayOptions");
  EXPECT_EQ(errorOf([&] { ki::fromArray<StrategyPtr>(options.get()); }),
            missing(name, "kalvex.bigdata.internal.PartitionedArrayOptions"));
}

TEST_F(Conversions, ASubclassObjectIsViewedAsItsBase) {
  const auto fixed = ki::createManagedObject<FixedNumPartitionStrategy>(std::size_t{4});
  const auto seen = ki::fromArray<StrategyPtr>(ki::toArray(fixed).get());
  EXPECT_EQ(seen.get(), fixed.get());
  EXPECT_EQ(seen->getMinNumPartitions(), 4u);
}

TEST_F(Conversions, ADeletedObjectIsNoErrorUntilItIsUsed) {
  const Value strategy = make("executor.ArbitraryPartitionStrategy");
  session.deleteObject(strategy.get());
  const auto seen = ki::fromArray<StrategyPtr>(strategy.get());
  EXPECT_TRUE(static_cast<bool>(seen));
  EXPECT_EQ(errorOf([&] { seen.get(); }), "KALVEX:class:InvalidHandle");
}

TEST_F(Conversions, VectorsAreColumnsOfObjects) {
  using Pointers = std::vector<StrategyPtr>;
  const StrategyPtr first = ki::createManagedObject<FixedNumPartitionStrategy>(std::size_t{1});
  const StrategyPtr second = ki::createManagedObject<FixedNumPartitionStrategy>(std::size_t{2});
  const Value column = ki::toArray(Pointers{first, second, first});
  EXPECT_EQ(kxGetM(column.get()), 3u);
  EXPECT_EQ(kxGetN(column.get()), 1u);
  const Pointers back = ki::fromArray<Pointers>(column.get());
  ASSERT_EQ(back.size(), 3u);
  EXPECT_EQ(back[1].get(), second.get());
  EXPECT_EQ(back[2].get(), first.get());

  const Value none = ki::toArray(Pointers());
  EXPECT_EQ(kxGetM(none.get()), 0u);
  EXPECT_EQ(kxGetN(none.get()), 1u);
  EXPECT_TRUE(ki::fromArray<Pointers>(none.get()).empty());
}

TEST_F(Conversions, OnlyAMissingArrayIsAnEmptyVector) {
  using Pointers = std::vector<StrategyPtr>;
  EXPECT_TRUE(ki::fromArray<Pointers>(nullptr).empty());
  EXPECT_EQ(errorOf([&] { ki::fromArray<Pointers>(makeEmptyDouble().get()); }),
            missing("kalvex.bigdata.internal.executor.PartitionStrategy", "double"));
}

TEST_F(Conversions, OfTwoBadInputsTheLaterOneIsReported) {
  const Value strategy = make("executor.ArbitraryPartitionStrategy");
  const Value bad = makeDouble(-1);
  const Value good = makeDouble(1);
  EXPECT_EQ(errorOf([&] { invoke(strategy, "resolve", bad, good, makeChars("x")); }),
            missing("scalar logical", ""));
  EXPECT_EQ(errorOf([&] { invoke(strategy, "resolve", bad, good, good); }),
            missing("scalar size_t", "1x1 double"));
}

}  // namespace
}  // namespace bigdata

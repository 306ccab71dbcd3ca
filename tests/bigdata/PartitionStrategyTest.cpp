#include <cmath>
#include <limits>
#include <utility>

#include "CoreSession.h"
#include "executor/PartitionStrategy.h"
#include "ki/conversions.h"

namespace bigdata {
namespace {

using executor::PartitionStrategy;
using kv::host::makeDouble;
using kv::host::makeEmptyDouble;
using kv::host::makeLogical;
using StrategyPtr = ki::KalvexManagedPtr<PartitionStrategy>;

constexpr double kInfinity = std::numeric_limits<double>::infinity();

class Strategies : public CoreSession {
 protected:
  Strategies() {
    stub("kalvex.bigdata.internal.executor.SimplePartition", [](const Call& call) {
      std::vector<Value> inputs;
      inputs.push_back(matrix::sharedCopy(call.in(0)));
      inputs.push_back(matrix::sharedCopy(call.in(1)));
      call.out(0, kv::host::makeCell(std::move(inputs)));
    });
  }

  Value fixed(double count) {
    return make("executor.FixedNumPartitionStrategy", makeDouble(count));
  }
  Value arbitrary() { return make("executor.ArbitraryPartitionStrategy"); }
  Value broadcast() { return make("executor.BroadcastPartitionStrategy"); }

  /// Index and count of the partition made.
  std::pair<double, double> partition(const Value& strategy, double index, double count) {
    const Value made = invoke(strategy, "createPartition", makeDouble(index), makeDouble(count));
    return {kxGetScalar(kxGetCell(made.get(), 0)), kxGetScalar(kxGetCell(made.get(), 1))};
  }
  /// The number of partitions of what `fixNumPartitions` gives.
  double fix(const Value& strategy, double count) {
    return getDouble(invoke(strategy, "fixNumPartitions", makeDouble(count)), "MinNumPartitions");
  }
  double resolved(const Value& strategy, double byDefault, double limit) {
    const Value made =
        invoke(strategy, "resolve", makeDouble(byDefault), makeDouble(limit), makeLogical(true));
    return getDouble(made, "MinNumPartitions");
  }
  /// What a method answers, a flag as 0 or 1.
  template <class... Inputs>
  double number(const Value& strategy, std::string_view method, const Inputs&... inputs) {
    return kxGetScalar(invoke(strategy, method, inputs...).get());
  }
  bool compatible(const Value& a, const Value& b) {
    return kv::host::toLogical(invoke(a, "isCompatible", b).get());
  }
  std::string check(const Value& a, const Value& b) {
    return errorOf([&] { session.invoke(a.get(), "throwIfIncompatible", 0, {{b.get()}}); });
  }
};

TEST_F(Strategies, AnswerByTheirKind) {
  struct Row {
    Value strategy;
    double minimum, maximum;
    bool isBroadcast, isSingle, allowsSingle, isResolved;
  };
  Row rows[] = {
      {arbitrary(), 1, kInfinity, false, false, true, false},
      {broadcast(), 1, 1, true, true, true, true},
      {fixed(1), 1, 1, false, true, true, true},
      {fixed(3), 3, 3, false, false, false, true},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(kxGetClassName(row.strategy.get()));
    EXPECT_EQ(getDouble(row.strategy, "MinNumPartitions"), row.minimum);
    EXPECT_EQ(getDouble(row.strategy, "MaxNumPartitions"), row.maximum);
    EXPECT_EQ(number(row.strategy, "getMinNumPartitions"), row.minimum);
    EXPECT_EQ(number(row.strategy, "getMaxNumPartitions"), row.maximum);
    EXPECT_EQ(getFlag(row.strategy, "IsBroadcast"), row.isBroadcast);
    EXPECT_FALSE(getFlag(row.strategy, "IsDatastorePartitioning"));
    EXPECT_EQ(getDouble(row.strategy, "MaxNumReadFailures"), 0);
    EXPECT_EQ(number(row.strategy, "isKnownSinglePartition"), row.isSingle);
    EXPECT_EQ(number(row.strategy, "allowsSinglePartition"), row.allowsSingle);
    EXPECT_EQ(number(row.strategy, "isResolved"), row.isResolved);
  }
}

TEST_F(Strategies, CountPartitionsBetweenMinimumAndMaximum) {
  EXPECT_EQ(number(arbitrary(), "numpartitions"), 1);
  EXPECT_EQ(number(fixed(5), "numpartitions"), 5);
  EXPECT_EQ(number(arbitrary(), "numpartitions", makeDouble(12)), 12);
  EXPECT_EQ(number(arbitrary(), "numpartitions", makeDouble(0)), 1);
  EXPECT_EQ(number(fixed(5), "numpartitions", makeDouble(12)), 5);
}

TEST_F(Strategies, ResolveByMaximumThenDefaultThenLimitAndTheMinimumWins) {
  EXPECT_EQ(resolved(arbitrary(), 8, 4), 4);
  EXPECT_EQ(resolved(arbitrary(), 8, 40), 8);
  EXPECT_EQ(resolved(arbitrary(), 0, 0), 1);
  EXPECT_EQ(resolved(fixed(6), 8, 4), 6);
  const Value one = broadcast();
  EXPECT_TRUE(
      isSameObject(invoke(one, "resolve", makeDouble(8), makeDouble(4), makeLogical(false)), one));
}

TEST_F(Strategies, MakePartitionsWithinTheirBounds) {
  EXPECT_EQ(partition(arbitrary(), 1, 1), std::pair(1.0, 1.0));
  EXPECT_EQ(partition(arbitrary(), 5, 5), std::pair(5.0, 5.0));
  EXPECT_EQ(partition(fixed(3), 2, 3), std::pair(2.0, 3.0));
  EXPECT_EQ(partition(broadcast(), 1, 1), std::pair(1.0, 1.0));
}

TEST_F(Strategies, RefuseHadoopMetadataEachInItsOwnWords) {
  const auto split = [&](const Value& strategy) {
    return errorOf([&] {
      ki::fromArray<StrategyPtr>(strategy.get())->createPartition(1, 1, makeEmptyDouble());
    });
  };
  EXPECT_EQ(split(arbitrary()),
            internalError("Cannot create a arbitrary partition from Hadoop metadata."));
  EXPECT_EQ(split(broadcast()),
            internalError("Cannot create a broadcast partition from Hadoop metadata."));
  EXPECT_EQ(
      split(fixed(1)),
      internalError("Cannot create a FixedNumPartitionStrategy partition from Hadoop metadata."));
}

TEST_F(Strategies, FixTheirNumberIfTheyCan) {
  EXPECT_EQ(fix(arbitrary(), 3), 3);
  EXPECT_EQ(fix(fixed(3), 3), 3);
  EXPECT_EQ(fix(broadcast(), 1), 1);
}

TEST_F(Strategies, AreCompatibleWithinAClassOnly) {
  const Value three = fixed(3);
  EXPECT_TRUE(compatible(three, three));
  EXPECT_TRUE(compatible(three, fixed(3)));
  EXPECT_FALSE(compatible(three, fixed(4)));
  EXPECT_FALSE(compatible(three, arbitrary()));
  EXPECT_TRUE(compatible(arbitrary(), arbitrary()));
  EXPECT_TRUE(compatible(broadcast(), broadcast()));
  EXPECT_FALSE(compatible(broadcast(), three));

  EXPECT_EQ(check(three, fixed(3)), "no error");
  EXPECT_EQ(check(three, fixed(4)), "KALVEX:bigdata:array:IncompatibleTallIndexing");
}

TEST_F(Strategies, ATypedQuestionAboutAnotherClassIsAnsweredNo) {
  EXPECT_FALSE(kv::host::toLogical(invoke(fixed(1), "typedIsCompatible", broadcast()).get()));
}

TEST_F(Strategies, ALoadedFixedStrategyGetsItsCountBack) {
  const Value three = makeDouble(3);
  const std::pair<std::string, const kxArray*> stored[] = {{"MinNumPartitions", three.get()}};
  const Value loaded =
      session.loadInstance("kalvex.bigdata.internal.executor.FixedNumPartitionStrategy", stored);
  EXPECT_EQ(getDouble(loaded, "MaxNumPartitions"), 3);
  EXPECT_NE(errorOf([&] { session.set(loaded.get(), "MinNumPartitions", three.get()); }),
            "no error");
}

}  // namespace
}  // namespace bigdata

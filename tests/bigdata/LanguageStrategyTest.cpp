#include <limits>
#include <memory>

#include "CoreSession.h"
#include "executor/PartitionStrategy.h"
#include "ki/conversions.h"

namespace bigdata {

namespace {

using executor::PartitionStrategy;
using kv::host::makeDouble;
using kv::host::makeLogical;
using StrategyPtr = ki::KalvexManagedPtr<PartitionStrategy>;

/// Strategies whose bodies belong to the host: native code reaches them through their native part.
class LanguageStrategies : public CoreSession {
 protected:
  LanguageStrategies() { defineStrategy("demo.Strategy"); }

  void defineStrategy(const std::string& name) {
    auto definition = std::make_shared<kv::host::ClassDefinition>();
    definition->name = name;
    definition->superclasses = {"kalvex.bigdata.internal.executor.PartitionStrategy"};
    addProperty(*definition, "MinNumPartitions", [] { return makeDouble(2); });
    addProperty(*definition, "MaxNumPartitions", [this] { return makeDouble(maximum); });
    addProperty(*definition, "IsDatastorePartitioning", [] { return makeLogical(true); });
    addProperty(*definition, "IsBroadcast", [] { return makeLogical(false); });
    addProperty(*definition, "MaxNumReadFailures", [] { return makeDouble(4); });
    for (const char* method :
         {"createPartition", "fixNumPartitions", "resolve", "isKnownSinglePartition",
          "typedIsCompatible", "typedThrowIfIncompatible", "typedAlign"}) {
      definition->methods.push_back(
          {.name = method, .body = [this, method](const Call& call) { answer(method, call); }});
    }
    session.defineClass(definition);
  }

  static void addProperty(kv::host::ClassDefinition& definition, std::string name,
                          kv::host::PropertyDefault make) {
    definition.properties.push_back({.name = std::move(name), .makeDefault = std::move(make)});
  }

  /// Records the call with its inputs and returns what the method returns.
  void answer(const std::string& method, const Call& call) {
    noted = method;
    for (int i = 1; i < call.nrhs; ++i) {
      noted += " " + kxGetClassName(call.in(i));
    }
    if (method == "createPartition") {
      call.out(0, kv::host::makeString("partition"));
    } else if (method == "typedIsCompatible") {
      call.out(0, makeLogical(false));
    } else if (method != "typedThrowIfIncompatible") {
      call.out(0, matrix::sharedCopy(call.in(0)));
    }
  }

  const PartitionStrategy& native(const Value& strategy) {
    return *ki::fromArray<StrategyPtr>(strategy.get());
  }

  double maximum = 9;
  std::string noted;
};

TEST_F(LanguageStrategies, AnswerByTheirProperties) {
  const Value strategy = call("demo.Strategy");
  EXPECT_EQ(native(strategy).getMinNumPartitions(), 2u);
  EXPECT_EQ(native(strategy).getMaxNumPartitions(), 9u);
  EXPECT_TRUE(native(strategy).getIsDatastorePartitioning());
  EXPECT_FALSE(native(strategy).getIsBroadcast());
  EXPECT_EQ(native(strategy).getMaxNumReadFailures(), 4u);
  EXPECT_EQ(kxGetScalar(invoke(strategy, "numpartitions", makeDouble(20)).get()), 9);
  EXPECT_EQ(noted, "");
}

TEST_F(LanguageStrategies, AnInfiniteMaximumIsNone) {
  maximum = -std::numeric_limits<double>::infinity();
  const Value strategy = call("demo.Strategy");
  EXPECT_EQ(native(strategy).getMaxNumPartitions(), std::nullopt);
  EXPECT_EQ(kxGetScalar(invoke(strategy, "getMaxNumPartitions").get()),
            std::numeric_limits<double>::infinity());
  maximum = 1;
  EXPECT_TRUE(native(call("demo.Strategy")).isKnownSinglePartition());
  EXPECT_EQ(noted, "") << "the maximum is read, the method of that name isn't called";
}

TEST_F(LanguageStrategies, PassEachQuestionToTheirOwnMethod) {
  const Value strategy = call("demo.Strategy");
  const PartitionStrategy& self = native(strategy);
  EXPECT_EQ(kv::host::toText(self.createPartition(1, 2).get()), "partition");
  EXPECT_EQ(noted, "createPartition double double");
  self.createPartition(1, 2, kv::host::makeString("split"));
  EXPECT_EQ(noted, "createPartition double double string");
  EXPECT_EQ(self.fixNumPartitions(3).get(), &self);
  EXPECT_EQ(noted, "fixNumPartitions double");
  EXPECT_EQ(self.resolve(1, 2, true).get(), &self);
  EXPECT_EQ(noted, "resolve double double logical");
  EXPECT_FALSE(self.typedIsCompatible(self));
  EXPECT_EQ(noted, "typedIsCompatible demo.Strategy");
  self.typedThrowIfIncompatible(self);
  EXPECT_EQ(noted, "typedThrowIfIncompatible demo.Strategy");
  EXPECT_EQ(self.typedAlign(self).get(), &self);
  EXPECT_EQ(noted, "typedAlign demo.Strategy");
}

TEST_F(LanguageStrategies, CompareByTheirMostDerivedClass) {
  defineStrategy("demo.Other");
  const Value strategy = call("demo.Strategy");
  EXPECT_TRUE(kv::host::toLogical(invoke(strategy, "isCompatible", strategy).get()));
  EXPECT_EQ(noted, "") << "an object is compatible with itself without being asked";
  EXPECT_FALSE(kv::host::toLogical(invoke(strategy, "isCompatible", call("demo.Other")).get()));
  EXPECT_EQ(noted, "");
  EXPECT_EQ(errorOf([&] { call("alignPartitionStrategyBuiltin", strategy, call("demo.Other")); }),
            "KALVEX:bigdata:array:IncompatibleTallIndexing");
}

TEST_F(LanguageStrategies, NativeOnesRefuseHadoopMetadataEachInItsOwnWords) {
  const std::pair<Value, std::string> rows[] = {
      {make("executor.ArbitraryPartitionStrategy"), "a arbitrary"},
      {make("executor.BroadcastPartitionStrategy"), "a broadcast"},
      {make("executor.FixedNumPartitionStrategy", makeDouble(1)), "a FixedNumPartitionStrategy"}};
  for (const auto& [strategy, kind] : rows) {
    EXPECT_EQ(errorOf([&] { native(strategy).createPartition(1, 1, makeDouble(0)); }),
              internalError("Cannot create " + kind + " partition from Hadoop metadata."));
  }
}

TEST_F(LanguageStrategies, ALoadedFixedOneGetsItsCountBack) {
  const Value three = makeDouble(3);
  const std::pair<std::string, const kxArray*> stored[] = {{"MinNumPartitions", three.get()}};
  const Value loaded =
      session.loadInstance("kalvex.bigdata.internal.executor.FixedNumPartitionStrategy", stored);
  EXPECT_EQ(getDouble(loaded, "MaxNumPartitions"), 3);
}

}  // namespace
}  // namespace bigdata

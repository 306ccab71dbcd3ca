#include "CoreSession.h"

namespace bigdata {
namespace {

using kv::host::makeDouble;
using kv::host::makeEmptyDouble;
using kv::host::makeLogical;

/// What a host value stands for as a strategy, and how several are brought together.
class Alignment : public CoreSession {
 protected:
  Alignment() {
    stub("kalvex.io.datastore.internal.shim.isDatastore", [this](const Call& call) {
      call.out(0, makeLogical(kxGetClassID(call.in(0)) == kxSTRING_CLASS));
    });
    stub("kalvex.bigdata.internal.executor.DatastorePartitionStrategy",
         [this](const Call& c) { c.out(0, fixed(11)); });
    stub("kalvex.bigdata.internal.executor.ConcatenatedPartitionStrategy", [this](const Call& c) {
      concatenated.clear();
      for (int i = 0; i < c.nrhs; ++i) {
        concatenated += c.in(i) == nullptr ? "null " : kxGetClassName(c.in(i)) + " ";
      }
      c.out(0, fixed(12));
    });
  }

  Value fixed(double count) {
    return make("executor.FixedNumPartitionStrategy", makeDouble(count));
  }
  Value arbitrary() { return make("executor.ArbitraryPartitionStrategy"); }
  Value broadcast() { return make("executor.BroadcastPartitionStrategy"); }
  Value metadata(const Value& partitioning) { return make("PartitionMetadata", partitioning); }
  Value emptyMetadata() {
    return session.loadInstance("kalvex.bigdata.internal.PartitionMetadata", {});
  }

  template <class... Inputs>
  Value align(const Inputs&... inputs) {
    return call("alignPartitionStrategyBuiltin", inputs...);
  }
  template <class... Inputs>
  Value alignMetadata(const Inputs&... inputs) {
    return get(call("alignPartitionMetadataBuiltin", inputs...), "Strategy");
  }
  std::string kind(const Value& strategy) {
    const std::string name = kxGetClassName(strategy.get());
    return name.substr(name.rfind('.') + 1);
  }

  std::string concatenated;
};

TEST_F(Alignment, AStrategyIsMadeOfWhateverStandsForOne) {
  const auto create = [&](const Value& value) {
    return call("createPartitionStrategyBuiltin", value);
  };
  EXPECT_EQ(kind(create(makeEmptyDouble())), "ArbitraryPartitionStrategy");
  EXPECT_EQ(getDouble(create(makeDouble(4)), "MinNumPartitions"), 4);
  const Value given = broadcast();
  EXPECT_TRUE(isSameObject(create(given), given));
  EXPECT_EQ(getDouble(create(kv::host::makeString("folder")), "MinNumPartitions"), 11);
  EXPECT_EQ(takeCalls(), "isDatastore DatastorePartitionStrategy");

  EXPECT_NE(errorOf([&] { create(makeLogical(true)); }), "no error");
  EXPECT_EQ(takeCalls(), "isDatastore") << "a flag is no number";
}

TEST_F(Alignment, IsTheFirstOfOneClassAndBroadcastsFitAny) {
  const Value three = fixed(3);
  EXPECT_TRUE(isSameObject(align(broadcast(), three), three));
  EXPECT_TRUE(isSameObject(align(three, broadcast(), makeEmptyDouble(), fixed(5)), three));
}

TEST_F(Alignment, OfNothingButBroadcastsIsANewBroadcast) {
  const Value one = broadcast();
  const Value aligned = align(one, one);
  EXPECT_EQ(kind(aligned), "BroadcastPartitionStrategy");
  EXPECT_FALSE(isSameObject(aligned, one));
  EXPECT_EQ(kind(align()), "BroadcastPartitionStrategy");
  EXPECT_EQ(kind(alignMetadata()), "BroadcastPartitionStrategy");
}

TEST_F(Alignment, MetadataIsMadeOfWhateverStandsForAStrategy) {
  EXPECT_EQ(kind(get(metadata(makeEmptyDouble()), "Strategy")), "ArbitraryPartitionStrategy");
  EXPECT_EQ(getDouble(get(metadata(makeDouble(6)), "Strategy"), "MinNumPartitions"), 6);
  const Value given = fixed(2);
  EXPECT_TRUE(isSameObject(get(metadata(given), "Strategy"), given));
  EXPECT_EQ(get(emptyMetadata(), "Strategy"), nullptr);
}

TEST_F(Alignment, LooksThroughMetadata) {
  const Value three = fixed(3);
  EXPECT_TRUE(isSameObject(
      alignMetadata(emptyMetadata(), metadata(broadcast()), metadata(three), makeEmptyDouble()),
      three));
}

TEST_F(Alignment, ConcatenationAsksTheHostWithEveryStrategyInOrder) {
  const Value made = call("vertcatPartitionMetadataBuiltin", metadata(arbitrary()), emptyMetadata(),
                          metadata(broadcast()));
  EXPECT_EQ(concatenated,
            "kalvex.bigdata.internal.executor.ArbitraryPartitionStrategy null "
            "kalvex.bigdata.internal.executor.BroadcastPartitionStrategy ");
  EXPECT_EQ(getDouble(get(made, "Strategy"), "MinNumPartitions"), 12);
  call("vertcatPartitionMetadataBuiltin", metadata(arbitrary()));
  EXPECT_EQ(concatenated, "kalvex.bigdata.internal.executor.ArbitraryPartitionStrategy ");
}

TEST_F(Alignment, MetadataKeepsItsStrategyAliveAndLetsItGo) {
  const std::string_view fixedClass = "kalvex.bigdata.internal.executor.FixedNumPartitionStrategy";
  Value made = metadata(makeDouble(6));
  session.collect();
  EXPECT_EQ(session.liveObjects(fixedClass), 1u);
  made.reset();
  EXPECT_EQ(session.liveObjects(fixedClass), 0u);
}

TEST_F(Alignment, ADeletedStrategyOfMetadataCanBeReadButNotUsed) {
  const Value made = metadata(makeDouble(6));
  const Value strategy = get(made, "Strategy");
  session.deleteObject(strategy.get());
  EXPECT_TRUE(isSameObject(get(made, "Strategy"), strategy));
  EXPECT_EQ(errorOf([&] { alignMetadata(made); }), "KALVEX:class:InvalidHandle");
}

}  // namespace
}  // namespace bigdata

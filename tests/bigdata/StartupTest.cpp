#include "CoreSession.h"
#include "kv/bigdata.h"

namespace bigdata {
namespace {

class Startup : public CoreSession {};

TEST_F(Startup, TwiceInASessionLeavesItAsItWas) {
  const Value strategy = make("executor.ArbitraryPartitionStrategy");
  const std::vector<std::string> classes = session.classes();
  session.load(KVInitialize_libkvbigdata);
  EXPECT_EQ(session.classes(), classes);
  EXPECT_EQ(getDouble(strategy, "MinNumPartitions"), 1);
  KVTerminate_libkvbigdata();
  EXPECT_EQ(getDouble(make("executor.ArbitraryPartitionStrategy"), "MinNumPartitions"), 1);
}

TEST_F(Startup, EachSessionHasItsOwnClasses) {
  kv::host::Session other;
  EXPECT_TRUE(other.classes().empty());
  other.load(KVInitialize_libkvbigdata);
  EXPECT_EQ(other.classes(), session.classes());
}

TEST_F(Startup, BuiltinsCheckOutputsThenTooManyThenTooFewInputs) {
  struct Row {
    std::string_view name;
    int nlhs;
    std::size_t nrhs;
    std::string_view error;
  };
  const Value one = kv::host::makeDouble(1);
  for (const Row& row : {Row{"createFromConstantBuiltin", 2, 3, "KALVEX:TooManyOutputs"},
                         Row{"createFromConstantBuiltin", 1, 3, "KALVEX:TooManyInputs"},
                         Row{"createFromConstantBuiltin", 1, 0, "KALVEX:NotEnoughInputs"},
                         Row{"createFromDatastoreBuiltin", 1, 2, "KALVEX:TooManyInputs"},
                         Row{"createFromFutureBuiltin", 1, 4, "KALVEX:TooManyInputs"},
                         Row{"createFromFutureBuiltin", 1, 1, "KALVEX:NotEnoughInputs"},
                         Row{"applyOperationBuiltin", 9, 0, "KALVEX:NotEnoughInputs"},
                         Row{"createPartitionStrategyBuiltin", 2, 0, "KALVEX:TooManyOutputs"},
                         Row{"createPartitionStrategyBuiltin", 1, 2, "KALVEX:TooManyInputs"},
                         Row{"createPartitionStrategyBuiltin", 1, 0, "KALVEX:NotEnoughInputs"},
                         Row{"alignPartitionStrategyBuiltin", 2, 0, "KALVEX:TooManyOutputs"},
                         Row{"alignPartitionMetadataBuiltin", 2, 0, "KALVEX:TooManyOutputs"},
                         Row{"vertcatPartitionMetadataBuiltin", 1, 0, "KALVEX:NotEnoughInputs"},
                         Row{"userStackBuiltin", 1, 1, "KALVEX:TooManyInputs"},
                         Row{"hasInternalStackFramesBuiltin", 2, 0, "KALVEX:TooManyOutputs"}}) {
    const std::vector<const kxArray*> inputs(row.nrhs, one.get());
    EXPECT_EQ(errorOf([&] { session.call(row.name, row.nlhs, inputs); }), row.error) << row.name;
  }
}

TEST(StartupOfAProcess, HappensOnceWhereClassesAreKeptPerProcess) {
  kv::host::SessionOptions perProcess;
  perProcess.classesPerSession = false;
  kv::host::Session session(perProcess);
  const kv::host::Session::Scope scope(session);
  session.load(KVInitialize_libkvbigdata);
  const std::size_t count = session.classes().size();
  session.load(KVInitialize_libkvbigdata);
  EXPECT_EQ(session.classes().size(), count);
  EXPECT_FALSE(session.call("kalvex.bigdata.internal.PartitionedArrayOptions", 1, {}).empty());
}

}  // namespace
}  // namespace bigdata

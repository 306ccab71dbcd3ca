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

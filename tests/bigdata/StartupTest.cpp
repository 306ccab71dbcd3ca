#include <algorithm>
#include <set>

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

/// The maximum number of outputs of a builtin, and the range of its number of inputs.
struct Arity {
  std::string_view name;
  int maxOutputs, minInputs, maxInputs;
};
constexpr int kMany = 9;  ///< in effect no limit
constexpr Arity kArities[] = {
    {"alignPartitionMetadataBuiltin", 1, 0, kMany},
    {"alignPartitionStrategyBuiltin", 1, 0, kMany},
    {"applyOperationBuiltin", kMany, 1, kMany},
    {"canSkipGather", 1, 0, kMany},
    {"createFromConstantBuiltin", 1, 1, 2},
    {"createFromDatastoreBuiltin", 1, 1, 1},
    {"createFromFutureBuiltin", 1, 2, 3},
    {"createPartitionStrategyBuiltin", 1, 1, 1},
    {"hasInternalStackFramesBuiltin", 1, 0, 0},
    {"userStackBuiltin", 1, 0, 0},
    {"vertcatPartitionMetadataBuiltin", 1, 1, kMany},
};

/// The error of a call with these counts, if it is one of the three errors about counts.
std::string_view countError(const Arity& arity, int nlhs, int nrhs) {
  if (nlhs > arity.maxOutputs) {
    return "KALVEX:TooManyOutputs";
  }
  if (nrhs > arity.maxInputs) {
    return "KALVEX:TooManyInputs";
  }
  return nrhs < arity.minInputs ? "KALVEX:NotEnoughInputs" : "";
}

TEST_F(Startup, BuiltinsCheckOutputsThenTooManyThenTooFewInputs) {
  const Value one = kv::host::makeDouble(1);
  std::set<std::string_view> walked;
  for (const Arity& arity : kArities) {
    walked.insert(arity.name);
    for (int nlhs = 0; nlhs <= std::min(arity.maxOutputs + 1, kMany); ++nlhs) {
      for (int nrhs = 0; nrhs <= std::min(arity.maxInputs + 1, kMany); ++nrhs) {
        const std::vector<const kxArray*> inputs(static_cast<std::size_t>(nrhs), one.get());
        const std::string error = errorOf([&] { session.call(arity.name, nlhs, inputs); });
        const bool isOfCounts = error.starts_with("KALVEX:TooMany") || error.ends_with("Inputs");
        EXPECT_EQ(isOfCounts ? error : "", countError(arity, nlhs, nrhs))
            << arity.name << " with " << nlhs << " outputs and " << nrhs << " inputs";
      }
    }
  }
  std::set<std::string_view> entered;
  for (const auto& builtin : kv::bigdata::kOwningBuiltins) {
    entered.insert(builtin.name);
  }
  for (const auto& builtin : kv::bigdata::kRawBuiltins) {
    entered.insert(builtin.name);
  }
  EXPECT_EQ(walked, entered);
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

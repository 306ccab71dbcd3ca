#include <gmock/gmock.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "runtime/RuntimeSession.h"
#include "support/SystemCalls.h"

namespace kv::runtime::test {

namespace {

using testing::AnyOf;
using testing::ElementsAre;
using testing::HasSubstr;

constexpr char kStrategy[] = "kalvex.bigdata.internal.executor.PartitionStrategy";
constexpr char kSourcePart[] = "kalvex.bigdata.internal.executor.SourcePartition";

class Partitioning : public RuntimeSession {
 protected:
  /// Five files, of which one has no rows.
  Value source() {
    std::vector<std::string> paths;
    int value = 0;
    for (const int rows : {700, 1, 0, 40'000, 3}) {
      std::string text = "x\n";
      for (int row = 0; row < rows; ++row) {
        text += std::to_string(++value * 7919 % 10'007) + ".1\n";
      }
      paths.push_back(folder.write("p" + std::to_string(paths.size()) + ".csv", text));
    }
    return host::call("kalvex.io.CsvDatastore", {host::makeStringColumn(paths).get()});
  }

  static Value read(const Value& source, const Value& partitioning) {
    return column(host::call("kv.read", {source.get(), partitioning.get()}), "x");
  }

  /// `x`, and how many of the stacks of rows that a function can be given at a time have a row.
  static std::pair<std::vector<double>, int> gatherCounted(const Value& x) {
    int calls = 0;
    const Value same = host::makeFunctionHandle("same", [&](const host::Call& call) {
      calls += kxGetM(call.in(0)) > 0 ? 1 : 0;
      call.out(0, matrix::sharedCopy(call.in(0)));
    });
    std::vector<double> rows = gather(host::call("elementfun", {same.get(), x.get()}));
    return {std::move(rows), calls};
  }

  /// A user's class of strategies that cuts sources into `count` partitions.
  Value strategy(const char* name, double count, host::NativeBody createPartition) {
    host::ClassDefinition definition{.name = name, .superclasses = {kStrategy}};
    const auto number = [&](const char* called, double value) {
      definition.properties.push_back(
          {.name = called, .makeDefault = [value] { return host::makeDouble(value); }});
    };
    number("MinNumPartitions", count);
    number("MaxNumPartitions", count);
    number("MaxNumReadFailures", 2);
    for (const char* flag : {"IsDatastorePartitioning", "IsBroadcast"}) {
      definition.properties.push_back(
          {.name = flag, .makeDefault = [] { return host::makeLogical(false); }});
    }
    const host::NativeBody self = [](const host::Call& call) {
      call.out(0, matrix::sharedCopy(call.in(0)));
    };
    for (const char* method : {"fixNumPartitions", "resolve", "isKnownSinglePartition",
                               "typedIsCompatible", "typedThrowIfIncompatible", "typedAlign"}) {
      definition.methods.push_back({.name = method, .body = self});
    }
    definition.methods.push_back({.name = "createPartition", .body = std::move(createPartition)});
    session.defineClass(std::make_shared<const host::ClassDefinition>(std::move(definition)));
    return host::call(kcos::NameRef::of(name));
  }

  static Value sourcePart(double first, double count) {
    return host::call(kSourcePart, {host::makeDouble(first).get(), host::makeDouble(count).get()});
  }
};

TEST_F(Partitioning, FollowsTheStrategyAndRowsStayTheSame) {
  const Value files = source();
  const Value own = read(files, host::makeEmptyDouble());
  const std::vector<double> rows = gather(own);
  ASSERT_EQ(rows.size(), 40'704u);
  struct Case {
    double count;
    int calls;  ///< one for each partition with rows, and for each 32,768 rows of one
  };
  for (const auto& [count, calls] : {Case{1, 2}, {2, 3}, {3, 4}, {5, 5}}) {
    const Value x = read(files, host::makeDouble(count));
    EXPECT_EQ(gatherCounted(x), std::pair(rows, calls)) << count;
    EXPECT_EQ(gather(aggregate("max", filter(element("lt", x, 5000), x))),
              gather(aggregate("max", filter(element("lt", own, 5000), own))));
    EXPECT_EQ(fact("rows"), 40'704);
    const Value saved = session.loadBytes(session.saveBytes(x.get()), true);
    EXPECT_EQ(gather(saved), rows);
  }
  const auto [finer, calls] = gatherCounted(read(files, host::makeDouble(40)));
  EXPECT_EQ(finer, rows);
  EXPECT_GT(calls, 30) << "files of a few bytes are cut as well";
}

TEST_F(Partitioning, AUsersStrategyChoosesWhatEachUnitReads) {
  const std::vector<std::string> paths{folder.write("a.csv", "x\n1\n2\n"),
                                       folder.write("b.csv", "x\n3\n"),
                                       folder.write("c.csv", "x\n4\n")};
  const Value files = host::call("kalvex.io.CsvDatastore", {host::makeStringColumn(paths).get()});
  const Value backwards = strategy("mine.Backwards", 3, [](const host::Call& call) {
    const double index = kxGetScalar(call.in(1));
    call.out(0, index == 3 ? sourcePart(2, 0) : sourcePart(index == 1 ? 2 : 1, 3 - index));
  });
  const Value x = read(files, backwards);
  EXPECT_EQ(gather(element("times", x, 10)), (std::vector<double>{30, 40, 10, 20}));
  const Value y = read(files, backwards);
  EXPECT_EQ(gather(element("plus", x, y)), (std::vector<double>{6, 8, 2, 4}));

  const Value two = read(files, host::makeDouble(2));
  EXPECT_EQ(errorOf([&] { element("plus", two, x); }).identifier,
            "KALVEX:bigdata:array:IncompatibleTallIndexing");
  const Value three = read(files, host::makeDouble(3));
  EXPECT_THAT(errorOf([&] { gather(element("plus", two, three)); }).identifier,
              AnyOf("KALVEX:array:DifferentSources", "KALVEX:array:RowsDiffer"));
}

TEST_F(Partitioning, PartitionsThatMeanNothingAreRefusedBeforeReading) {
  const Value files = source();
  const auto errorFor = [&](const char* name, double count, auto&& make) {
    const Value wrong =
        strategy(name, count, [make](const host::Call& call) { call.out(0, make()); });
    return errorOf([&] { gather(read(files, wrong)); });
  };
  const auto outside = errorFor("mine.Outside", 1, [] { return sourcePart(5, 2); });
  EXPECT_EQ(outside.identifier, "KALVEX:executor:Partition");
  EXPECT_THAT(outside.message, HasSubstr("mine.Outside created partition 1 of 1 as 2 partitions "
                                         "from 5 on. It must be"));
  std::string name = "mine.Wrong";
  for (const auto& [first, count] : {std::pair(0.0, 1.0), {1.0, -1.0}, {1.5, 1.0}, {1.0, NAN}}) {
    name += "r";
    const auto error = errorFor(
        name.c_str(), 2, [first = first, count = count] { return sourcePart(first, count); });
    EXPECT_EQ(error.identifier, "KALVEX:executor:Partition") << first << ", " << count;
  }
  EXPECT_EQ(errorFor("mine.Number", 2, [] { return host::makeDouble(1); }).identifier,
            "KALVEX:executor:Partition");
  EXPECT_EQ(errorFor("mine.Many", 1e9, [] { return sourcePart(1, 1); }).identifier,
            "KALVEX:executor:PartitionCount");
  EXPECT_EQ(errorOf([&] { gather(read(files, host::makeDouble(1e9))); }).identifier,
            "KALVEX:executor:PartitionCount");
}

/// Reads that fail, one or several times after each other.
using PartitioningFaults = Partitioning;

TEST_F(PartitioningFaults, AreRepeatedAsOftenAsTheStrategySaysAndFaultsOfTheDataNever) {
  if (!kv::test::canTrace()) {
    GTEST_SKIP() << "processes can't be traced here";
  }
  setThreads(1);  // the traced one
  const auto open = [&](const char* text) {
    const std::string path = folder.writeAtRest("a.csv", text);
    return host::call("kalvex.io.CsvDatastore", {host::makeChars(path).get()});
  };
  const Value files = open("x\n1\n2\n");
  const Value users =
      strategy("mine.Patient", 1, [](const host::Call& call) { call.out(0, sourcePart(1, 1)); });
  const auto outcome = [](const Value& source, const Value& partitioning) -> std::string {
    try {
      const Value x = partitioning != nullptr
                          ? read(source, partitioning)
                          : column(host::call("createFromDatastoreBuiltin", {source.get()}), "x");
      return std::to_string(gather(aggregate("sum", x))[0]);
    } catch (const Torvane::KException::KExceptionEnvelope& envelope) {
      return host::errorRecord(envelope).identifier;
    }
  };
  const Value own;  // the source's own partitions
  const Value one = host::makeDouble(1);
  for (const auto& [partitioning, retries] :
       {std::pair(&own, 3), std::pair(&one, 0), std::pair(&users, 2)}) {
    const auto run = [&, by = partitioning] { return outcome(files, *by); };
    const kv::test::TracedRun whole = kv::test::runTraced(run);
    ASSERT_EQ(whole.outcome, "3.000000");
    const auto last = static_cast<std::size_t>(std::ranges::count(whole.calls, "pread")) - 1;
    for (const auto& [error, times] : {std::pair(EIO, retries), {EIO, retries + 1}, {EISDIR, 1}}) {
      const kv::test::TracedRun failing = kv::test::runTraced(
          run, kv::test::Fault{last, kv::test::Fault::Kind::fail, error, times, "pread"});
      const bool isRead = error == EIO && times <= retries;
      EXPECT_EQ(failing.outcome, isRead ? "3.000000" : "KALVEX:datastore:FileNotReadable")
          << times << " times " << error << " with " << retries << " retries";
    }
  }
  const Value wrong = open("x\n1\n2,3\n");
  const auto reads = [&](const Value& partitioning) {
    const auto run = kv::test::runTraced([&] { return outcome(wrong, partitioning); });
    EXPECT_EQ(run.outcome, "KALVEX:datastore:RaggedRow");
    return std::ranges::count(run.calls, "pread");
  };
  EXPECT_EQ(reads(users), reads(one));
}

}  // namespace

}  // namespace kv::runtime::test

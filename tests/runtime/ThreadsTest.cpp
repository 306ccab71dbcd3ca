#include <gmock/gmock.h>
#include <pthread.h>
#include <sched.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cmath>
#include <cstdlib>
#include <functional>
#include <limits>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "column/MemoryLedger.h"
#include "column/allocate.h"
#include "column/pool.h"
#include "executor/Admission.h"
#include "executor/runStage.h"
#include "executor/threadCount.h"
#include "kv/errors/StepError.h"
#include "operator/operators.h"
#include "runtime/RuntimeSession.h"
#include "runtime/fileBytes.h"

namespace kv::runtime::test {

namespace {

using testing::ElementsAre;
using testing::HasSubstr;

class Threads : public RuntimeSession {
 protected:
  static std::string csvOf(const std::vector<double>& x) {
    std::string text = "x\n";
    for (const double value : x) {
      text += std::to_string(static_cast<int>(value)) + ".25\n";
    }
    return text;
  }

  static std::string gzipOf(const std::vector<double>& x) {
    return compressed(csvOf(x), arrow::Compression::GZIP);
  }

  static std::string parquetOf(const std::vector<double>& x) {
    return parquetBytes({{"x", doubles(x)}}, {.groupRows = 7'001});
  }

  /// A column over nine files: many rows, none, few; so that later files are done first.
  Value unevenColumn(const std::string& ending = ".csv",
                     std::string (*bytesOf)(const std::vector<double>&) = csvOf) {
    std::vector<std::string> paths;
    for (const int rows : {90'000, 0, 1, 40'000, 3, 0, 33'000, 2, 5'000}) {
      std::vector<double> x;
      for (int row = 0; row < rows; ++row) {
        x.push_back((row * 7919 + rows) % 1000 + 0.25);
      }
      paths.push_back(folder.writeAtRest(std::to_string(paths.size()) + ending, bytesOf(x)));
    }
    const Value source = host::call("kv.datastore", {host::makeStringColumn(paths).get()});
    return column(host::call("createFromDatastoreBuiltin", {source.get()}), "x");
  }

  static Value function(const char* name, host::NativeBody body) {
    return host::makeFunctionHandle(name, std::move(body));
  }

  static Value map(const Value& function, const Value& x) {
    return host::call("elementfun", {function.get(), x.get()});
  }

  static Value reduce(const Value& x) {
    const Value mean = function("mean of a frame", [](const host::Call& call) {
      call.out(0, host::call("kv.aggregate.mean", {call.in(0)}));
    });
    const Value sum = function("sum of means", [](const host::Call& call) {
      call.out(0, host::call("kv.aggregate.sum", {call.in(0)}));
    });
    return host::call("aggregatefun", {mean.get(), sum.get(), x.get()});
  }
};

TEST_F(Threads, ChangeNoBitOfAnAnswer) {
  const Value csv = unevenColumn();
  const Value gzip = unevenColumn(".csv.gz", gzipOf);
  const Value parquet = unevenColumn(".parquet", parquetOf);
  const Value third = function("third", [](const host::Call& call) {
    call.out(0, host::call("kv.element.rdivide", {call.in(0), host::makeDouble(3).get()}));
  });
  std::vector<std::vector<double>> first;
  for (const auto& [threads, source] :
       {std::pair(1, &csv), {2, &csv}, {8, &csv}, {3, &gzip}, {1, &parquet}, {3, &parquet}}) {
    setThreads(threads);
    const Value x = element("times", *source, 1.1);
    const Value few = filter(element("gt", x, 500), x);
    std::vector<std::vector<double>> answers;
    for (const Value& answer :
         {aggregate("std", x), aggregate("mean", few), aggregate("sum", map(third, few)),
          reduce(few), map(third, element("minus", few, aggregate("mean", x)))}) {
      answers.push_back(gather(answer));
    }
    first = first.empty() ? answers : first;
    EXPECT_EQ(answers, first) << threads << " threads";
  }
}

TEST_F(Threads, TheFailureOfTheLowestPartitionIsRaised) {
  const Value x = unevenColumn();
  for (const int threads : {1, 2, 8, 8, 8, 8}) {
    setThreads(threads);
    const Value failing = function("failing", [](const host::Call& call) {
      if (kxGetM(call.in(0)) < 30'000) {
        host::raiseWithMessage("my:error", "too few");
      }
      call.out(0, matrix::sharedCopy(call.in(0)));
    });
    const auto error = errorOf([&] { gather(aggregate("sum", map(failing, x))); });
    EXPECT_EQ(error.identifier, "my:error");
    EXPECT_THAT(error.message, HasSubstr("partition 1, rows 65537 to 90000")) << threads;
  }
}

TEST_F(Threads, FunctionsRunInTheSessionOnTheCallingThread) {
  setThreads(8);
  const Value x = unevenColumn();
  const Value other = column(table({"x\n1\n", "x\n2\n"}), "x");
  const std::thread::id caller = std::this_thread::get_id();
  const Value nested = function("nested", [&](const host::Call& call) {
    EXPECT_EQ(std::this_thread::get_id(), caller);
    const Value three = host::makeDouble(gather(aggregate("sum", element("plus", other, 0)))[0]);
    call.out(0, host::call("kv.element.times", {call.in(0), three.get()}));
  });
  EXPECT_THAT(gather(aggregate("max", map(nested, x))), ElementsAre(3 * 999.25));
}

TEST_F(Threads, AnInterruptInACallEndsAllOfThem) {
  const Value x = unevenColumn();
  for (const int threads : {1, 8}) {
    for (const bool fails : {false, true}) {
      setThreads(threads);
      int calls = 0;
      const Value interrupting = function("interrupting", [&](const host::Call& call) {
        requestInterrupt();
        ++calls;
        if (fails) {
          host::raiseWithMessage("my:error", "interrupted, too");
        }
        call.out(0, matrix::sharedCopy(call.in(0)));
      });
      EXPECT_THROW(gather(aggregate("sum", map(interrupting, x))), Interrupted);
      EXPECT_EQ(calls, 1);
      EXPECT_THAT(gather(aggregate("count", x)), ElementsAre(168'006));
    }
  }
}

/// A source of partitions of one row; a test decides when each can be opened.
class PacedSource final : public Datastore {
 public:
  using Open = std::function<void(std::int64_t partition, const CancellationToken& cancellation)>;

  PacedSource(std::int64_t numPartitions, Open open)
      : numPartitions_(numPartitions), open_(std::move(open)) {}

  const Schema& schema() const override { return schema_; }
  std::int64_t numPartitions() const override { return numPartitions_; }
  std::unique_ptr<ChunkReader> openPartition(std::int64_t partition,
                                             const std::vector<std::string>& /*columns*/,
                                             const CancellationToken& cancellation) const override {
    open_(partition, cancellation);
    return std::make_unique<Row>(partition);
  }
  Chunk preview(std::int64_t /*rows*/) const override { return {}; }
  std::unique_ptr<Datastore> copy() const override {
    return std::make_unique<PacedSource>(numPartitions_, open_);
  }
  const std::string& fingerprint() const override { return fingerprint_; }
  std::string describe() const override { throw std::logic_error("in this process only"); }
  std::string displayName() const override { return fingerprint_; }

 private:
  class Row final : public ChunkReader {
   public:
    explicit Row(std::int64_t partition) : partition_(partition) {}
    std::optional<Chunk> next() override {
      const bool isFirst = std::exchange(left_, 0) > 0;
      return isFirst ? std::optional(Chunk{partition_, RowOrdinals(0, 1), nullptr, {}})
                     : std::nullopt;
    }

   private:
    std::int64_t partition_;
    int left_ = 1;
  };

  std::int64_t numPartitions_;
  Open open_;
  Schema schema_;
  std::string fingerprint_ = "paced";
};

/// The failure with which the units of such a source end, on some threads.
std::optional<errors::FailureRecord> runUnits(int threads, std::int64_t numPartitions,
                                              PacedSource::Open open,
                                              SessionLease* lease = nullptr) {
  const auto source = std::make_shared<PacedSource>(numPartitions, std::move(open));
  const Stage stage({{makeRead(source)}, {makeCollect(), {{.index = 0}}}}, {1});
  UserFunctions functions;
  const CancellationToken never;
  const ExecutionContext context{currentPool(), never};
  OrderedMerge merge(stage, functions, 9);
  const auto units = makeUnitService(threads, numPartitions);
  return runStage(*units, {stage, functions, context, lease}, merge, StageRows(stage), 0);
}

/// Waits for a condition, which comes within a minute on any machine.
template <class Condition>
bool comes(Condition&& condition) {
  const auto end = std::chrono::steady_clock::now() + std::chrono::minutes(1);
  while (!condition() && std::chrono::steady_clock::now() < end) {
    std::this_thread::yield();
  }
  return condition();
}

TEST(Units, RunAgainAloneIfMemoryWasRefused) {
  const auto ledger = MemoryLedger::open(*arrow::default_memory_pool());
  ledger->setLimit(1'200'000);
  const PoolScope pool(ledger.get());
  std::atomic<int> opened = 0;
  std::atomic<bool> isSecondOpen = false;
  const auto failure = runUnits(2, 4, [&](std::int64_t partition, const CancellationToken&) {
    ++opened;
    if (partition == 1) {
      isSecondOpen = true;
    }
    EXPECT_TRUE(comes([&] { return isSecondOpen.load(); }));
    const auto held = allocateBuffer(700'000);
    EXPECT_TRUE(comes([&] { return ledger->refusals() > 0; }));
  });
  EXPECT_FALSE(failure.has_value());
  EXPECT_GT(opened, 4);
  EXPECT_LE(ledger->max_memory(), ledger->limit());
}

TEST(Units, FailForLackOfMemoryOnAnyNumberOfThreadsAlike) {
  const auto ledger = MemoryLedger::open(*arrow::default_memory_pool());
  ledger->setLimit(1'200'000);
  const PoolScope pool(ledger.get());
  for (const int threads : {1, 2, 8}) {
    const auto failure =
        runUnits(threads, 9, [&](std::int64_t partition, const CancellationToken&) {
          const auto held = allocateBuffer(partition == 5 ? 2'000'000 : 400'000);
        });
    ASSERT_TRUE(failure.has_value()) << threads;
    EXPECT_EQ(failure->partition, 5);
    EXPECT_EQ(failure->error.identifier, "KALVEX:memory:LimitTooSmall");
    EXPECT_THAT(failure->error.arguments, ElementsAre("", "2.0 MB", "1.2 MB")) << threads;
  }
}

TEST(Units, RunAtMostFourPerThreadAheadOfTheMerge) {
  std::atomic<int> opened = 0;
  const auto failure = runUnits(2, 40, [&](std::int64_t partition, const CancellationToken&) {
    ++opened;
    if (partition == 0) {
      EXPECT_TRUE(comes([&] { return opened == 8; }));
      std::this_thread::sleep_for(std::chrono::milliseconds(20));
      EXPECT_EQ(opened, 8);
    }
  });
  EXPECT_FALSE(failure);
  EXPECT_EQ(opened, 40);
}

TEST(Units, StartIfThoseInProgressFitTogether) {
  const auto ledger = MemoryLedger::open(*arrow::default_memory_pool());
  const PoolScope pool(ledger.get());
  const auto source = std::make_shared<PacedSource>(9, nullptr);
  const Stage stage({{makeRead(source)}, {makeCollect(), {{.index = 0}}}}, {1});
  const StageRows rows(stage);
  const std::int64_t bytes = rows.estimateBytes(0);
  Admission admission(rows, 2);
  ledger->setLimit(2 * bytes - 1);
  EXPECT_EQ(admission.next(9), 0);
  EXPECT_EQ(admission.next(9), std::nullopt);
  ledger->setLimit(2 * bytes);
  EXPECT_EQ(admission.next(9), 1);
  EXPECT_EQ(admission.next(9), 2) << "it waits for a thread, and needs no memory yet";
  for (const std::int64_t partition : {1, 0, 2}) {
    EXPECT_FALSE(admission.finish(partition)) << "it wasn't alone";
  }
  EXPECT_EQ(admission.next(9), 3);
  EXPECT_TRUE(admission.finish(3));
}

TEST(Units, AreMergedInTheOrderOfPartitions) {
  const Stage stage({}, {});
  UserFunctions functions;
  OrderedMerge merge(stage, functions, 3);
  for (const std::int64_t partition : {2, 1, 0}) {
    EXPECT_FALSE(merge.add({.partition = partition, .rows = 10 + partition}));
  }
  EXPECT_THAT(merge.partitionRows(), ElementsAre(10, 11, 12));
}

TEST(Units, AfterOneThatFailedAreCancelledAndThoseBeforeItFinish) {
  std::atomic<int> opened = 0;
  std::atomic<bool> isCancelled = false;
  const auto failure = runUnits(4, 40, [&](std::int64_t partition, const CancellationToken& token) {
    ++opened;
    EXPECT_TRUE(comes([&] { return opened >= 4; }));
    if (partition == 1) {
      throw std::runtime_error("one");
    }
    if (partition == 0) {
      EXPECT_TRUE(comes([&] { return isCancelled.load(); })) << "before partition 0 has ended";
      throw std::runtime_error("zero");
    }
    EXPECT_TRUE(comes([&] { return token.isCancelled(); }));
    isCancelled = true;
    token.throwIfCancelled();
  });
  ASSERT_TRUE(failure);
  EXPECT_EQ(failure->error.message, "zero");
  EXPECT_LE(opened, 5) << "one may begin before the client knows of the failure";
}

/// Notes whether the session is released.
class NotedLease final : public SessionLease {
 public:
  bool isReleasable() const noexcept override { return true; }
  std::unique_ptr<Released> release() noexcept override {
    return std::make_unique<Noted>(isReleased);
  }

  std::atomic<bool> isReleased = false;

 private:
  struct Noted final : Released {
    explicit Noted(std::atomic<bool>& flag) : isReleased(flag) { isReleased = true; }
    ~Noted() override { isReleased = false; }
    std::atomic<bool>& isReleased;
  };
};

TEST(Units, RunWhileTheSessionIsReleased) {
  for (const int threads : {1, 4}) {
    NotedLease lease;
    const auto open = [&](std::int64_t, const CancellationToken&) {
      EXPECT_TRUE(comes([&] { return lease.isReleased.load(); }));
    };
    EXPECT_FALSE(runUnits(threads, 10, open, &lease));
    EXPECT_FALSE(lease.isReleased);
  }
}

TEST(Units, RunOnTheCallingThreadWhereTheSystemStartsNone) {
  pthread_attr_t before;
  pthread_getattr_default_np(&before);
  pthread_attr_t beyondMemory = before;
  pthread_attr_setstacksize(&beyondMemory, std::size_t{1} << 56);
  pthread_setattr_default_np(&beyondMemory);
  int opened = 0;
  const auto failure = runUnits(8, 40, [&](std::int64_t, const CancellationToken&) { ++opened; });
  pthread_setattr_default_np(&before);
  EXPECT_FALSE(failure);
  EXPECT_EQ(opened, 40);
}

TEST_F(Threads, AreCountedInWholeNumbers) {
  for (const double number : {0.0, -1.0, 1.5, 1025.0}) {
    const Value given = host::makeDouble(number);
    const auto error = errorOf([&] { host::call("kv.setThreads", {given.get()}); });
    EXPECT_EQ(error.identifier, "KALVEX:executor:Threads") << number;
  }
  const char* set = std::getenv("KV_THREADS");
  const std::string before = set != nullptr ? set : "";
  for (const char* text : {"many", "2x", "0", "-1", "99999999999"}) {
    ::setenv("KV_THREADS", text, 1);
    EXPECT_THROW(defaultThreads(), errors::StepError) << text;
  }
  ::setenv("KV_THREADS", "3", 1);
  EXPECT_EQ(defaultThreads(), 3);
  ::setenv("KV_THREADS", before.c_str(), 1);
}

TEST(AvailableThreads, AreAtMostWhatTheControlGroupsGrantAndTheProcessorsOfTheProcess) {
  const std::string self = "proc/self/cgroup";
  const std::string v2 = "sys/fs/cgroup/";
  const std::string v1 = "sys/fs/cgroup/cpu/";
  const std::string hybrid = "9:name=systemd:/\n4:cpu,cpuacct:/a/b\n1:memory:/\n0::/\n";
  constexpr double kAll = std::numeric_limits<double>::infinity();
  struct Case {
    std::vector<std::pair<std::string, std::string>> files;
    double granted;
  };
  const Case cases[] = {
      {{}, kAll},
      {{{self, "0::/a/b\n"}, {v2 + "a/b/cpu.max", "max 100000\n"}}, kAll},
      {{{self, "0::/a/b\n"}, {v2 + "a/b/cpu.max", "150000 100000\n"}}, 1.5},
      {{{self, "0::/a/b\n"},
        {v2 + "a/cpu.max", "20000 100000\n"},
        {v2 + "a/b/cpu.max", "400000 100000\n"}},
       0.2},
      {{{self, "0::/a\n"}, {v2 + "cpu.max", "300000 100000\n"}}, 3},  // the mount of a container
      {{{self, "0::/a\n"}, {v2 + "unified/a/cpu.max", "300000 100000\n"}}, 3},
      {{{self, "0::/a\n"}, {v2 + "a/cpu.max", "many\n"}}, kAll},
      {{{self, hybrid},
        {v1 + "a/b/cpu.cfs_quota_us", "-1\n"},
        {v1 + "a/b/cpu.cfs_period_us", "100000\n"}},
       kAll},
      {{{self, hybrid},
        {v1 + "a/b/cpu.cfs_quota_us", "50000\n"},
        {v1 + "a/b/cpu.cfs_period_us", "25000\n"}},
       2},
      {{{self, hybrid},
        {v1 + "a/cpu.cfs_quota_us", "50000\n"},
        {v1 + "a/cpu.cfs_period_us", "100000\n"}},
       0.5},
      {{{self, hybrid}, {v1 + "cpu.cfs_quota_us", "50000\n"}, {v1 + "cpu.cfs_period_us", "0\n"}},
       kAll},
  };
  cpu_set_t all;
  CPU_ZERO(&all);
  ASSERT_EQ(::sched_getaffinity(0, sizeof all, &all), 0);
  for (const Case& each : cases) {
    const TempFolder root;
    for (const auto& [path, text] : each.files) {
      root.write(path, text);
    }
    EXPECT_EQ(grantedProcessors(root.path()), each.granted);
    EXPECT_EQ(availableThreads(root.path()),
              std::min<double>(CPU_COUNT(&all), std::ceil(each.granted)));
  }
  cpu_set_t one;
  CPU_ZERO(&one);
  CPU_SET(static_cast<std::size_t>(::sched_getcpu()), &one);
  ASSERT_EQ(::sched_setaffinity(0, sizeof one, &one), 0);
  EXPECT_EQ(availableThreads(), 1);
  ::sched_setaffinity(0, sizeof all, &all);
}

}  // namespace

}  // namespace kv::runtime::test

#include <arrow/buffer.h>
#include <gmock/gmock.h>

#include <cstdlib>
#include <string>
#include <thread>
#include <vector>

#include "column/MemoryLedger.h"
#include "executor/memoryLimit.h"
#include "kv/errors/StepError.h"
#include "kv/host/freeFunctions.h"
#include "runtime/RuntimeSession.h"

namespace kv::runtime::test {

namespace {

using testing::AnyOf;
using testing::ElementsAre;
using testing::HasSubstr;

TEST(MemoryLedger, NeverHasMoreThanItsLimit) {
  const auto ledger = MemoryLedger::open(*arrow::default_memory_pool());
  ledger->setLimit(1000);
  auto most = *arrow::AllocateResizableBuffer(640, ledger.get());
  EXPECT_TRUE(arrow::AllocateBuffer(361, ledger.get()).status().IsOutOfMemory());
  EXPECT_EQ(ledger->lastRefusal().needBytes, 640 + 384);  // buffers are multiples of 64 bytes
  EXPECT_TRUE(most->Resize(1001).IsOutOfMemory());
  EXPECT_TRUE(most->Resize(960).ok());
  EXPECT_TRUE(most->Resize(10).ok());
  EXPECT_EQ(ledger->bytes_allocated(), 64);
  EXPECT_EQ(ledger->max_memory(), 960);
  EXPECT_EQ(ledger->refusals(), 2);

  std::vector<std::jthread> threads;
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([&] {
      for (int turn = 0; turn < 2000; ++turn) {
        const auto buffer = arrow::AllocateBuffer(64 * (turn % 7), ledger.get());
      }
    });
  }
  threads.clear();
  EXPECT_EQ(ledger->bytes_allocated(), 64);
  EXPECT_LE(ledger->max_memory(), 1000);
}

TEST(MemoryLedger, CountsNothingThatTheSystemRefuses) {
  const auto system = MemoryLedger::open(*arrow::default_memory_pool());
  system->setLimit(1000);
  const auto ledger = MemoryLedger::open(*system);
  EXPECT_TRUE(arrow::AllocateBuffer(1001, ledger.get()).status().IsOutOfMemory());
  EXPECT_EQ(ledger->bytes_allocated(), 0);
  const auto buffer = *arrow::AllocateResizableBuffer(640, ledger.get());
  EXPECT_TRUE(buffer->Resize(1001).IsOutOfMemory());
  EXPECT_EQ(ledger->bytes_allocated(), 640);
}

TEST(MemoryLedger, LivesAsLongAsItsLastBuffer) {
  auto ledger = MemoryLedger::open(*arrow::default_memory_pool());
  const std::int64_t before = arrow::default_memory_pool()->bytes_allocated();
  std::unique_ptr<arrow::Buffer> kept = *arrow::AllocateBuffer(128, ledger.get());
  ledger.reset();
  kept->mutable_data()[127] = 1;
  kept.reset();
  EXPECT_EQ(arrow::default_memory_pool()->bytes_allocated(), before);
}

TEST(MemoryLimit, IsANumberOfBytesOrHasAUnit) {
  const std::vector<std::pair<std::string, std::int64_t>> good = {
      {"1000000", 1'000'000},    {"512MB", 512'000'000}, {"1.5GiB", 3L << 29},
      {"2 gib", 2L << 30},       {"64mib", 64L << 20},   {"1500kB", 1'500'000},
      {"3TB", 3'000'000'000'000}};
  for (const auto& [text, bytes] : good) {
    EXPECT_EQ(memoryLimitOf(text), bytes) << text;
  }
  for (const char* bad : {"", "MB", "12 parsecs", "-1GB", "0", "512", "999999", "1e9", "nan", "inf",
                          "10000000TB", "1GB2", "0x10000000"}) {
    try {
      memoryLimitOf(bad);
      ADD_FAILURE() << bad;
    } catch (const errors::StepError& error) {
      EXPECT_EQ(error.id(), "KALVEX:memory:Limit");
      EXPECT_EQ(error.arguments().at(0), bad);
    }
  }
}

TEST(MemoryLimit, IsAtMostWhatTheControlGroupsGrant) {
  const auto granted = [](std::vector<std::pair<std::string, std::string>> files) {
    const TempFolder root;
    for (const auto& [path, text] : files) {
      root.write(path, text);
    }
    return availableMemory(root.path());
  };
  const std::string self = "proc/self/cgroup";
  const std::string v2 = "sys/fs/cgroup/";
  const std::string v1 = "sys/fs/cgroup/memory/";
  const std::int64_t all = granted({});
  EXPECT_GT(all, 1 << 20);
  EXPECT_EQ(granted({{self, "0::/a/b\n"}, {v2 + "a/b/memory.max", "max\n"}}), all);
  EXPECT_EQ(granted({{self, "0::/a/b\n"}, {v2 + "a/b/memory.max", "5000000\n"}}), 5'000'000);
  EXPECT_EQ(granted({{self, "0::/a/b\n"},
                     {v2 + "a/memory.max", "4000000\n"},
                     {v2 + "a/b/memory.max", "5000000\n"}}),
            4'000'000);
  EXPECT_EQ(granted({{self, "0::/a\n"}, {v2 + "unified/a/memory.max", "5000000\n"}}), 5'000'000);
  const std::string hybrid = "9:name=systemd:/\n4:hugetlb,memory:/a/b\n1:cpu:/\n0::/\n";
  EXPECT_EQ(granted({{self, hybrid}, {v1 + "a/b/memory.limit_in_bytes", "6000000\n"}}), 6'000'000);
  EXPECT_EQ(granted({{self, hybrid}, {v1 + "a/memory.limit_in_bytes", "7000000\n"}}), 7'000'000);
  // In a container the mount is the group itself.
  EXPECT_EQ(granted({{self, hybrid}, {v1 + "memory.limit_in_bytes", "8000000\n"}}), 8'000'000);
  EXPECT_EQ(granted({{self, hybrid}, {v1 + "memory.limit_in_bytes", "9223372036854771712\n"}}),
            all);
}

class Memory : public RuntimeSession {
 protected:
  static void limit(std::string_view text) {
    const Value limit = host::makeString(text);
    host::callMany("kv.setMemoryLimit", 0, std::vector<const kxArray*>{limit.get()});
  }

  /// A column of `files` files with as many rows each.
  Value numbers(int files, int rows) {
    std::vector<std::string> paths;
    for (int file = 0; file < files; ++file) {
      std::string text = "x,y\n";
      for (int row = 0; row < rows; ++row) {
        text += std::to_string(row % 1000) + ".5," + std::to_string(file) + "\n";
      }
      paths.push_back(folder.write("m" + std::to_string(file) + ".csv", text));
    }
    const Value source =
        host::call("kalvex.io.CsvDatastore", {host::makeStringColumn(paths).get()});
    return column(host::call("createFromDatastoreBuiltin", {source.get()}), "x");
  }
};

TEST(ShownBytes, HaveTheUnitOfTheirSize) {
  const std::pair<std::int64_t, std::string_view> cases[] = {
      {999'999, "999999 bytes"},  {1'000'000, "1.0 MB"},        {64'010'001, "64.1 MB"},
      {4'201'000'000, "4.21 GB"}, {12'640'000'000, "12.64 GB"}, {8'000'000'000'000, "8.00 TB"},
  };
  for (const auto& [bytes, shown] : cases) {
    EXPECT_EQ(shownBytes(bytes), shown);
  }
}

TEST_F(Memory, AnEvaluationThatNeedsMoreNamesTheOperation) {
  const Value x = numbers(3, 200'000);
  for (const int threads : {1, 8}) {
    setThreads(threads);
    setMemoryLimit(1'000'000);
    const auto error = errorOf([&] { gather(aggregate("sum", x)); });
    EXPECT_EQ(error.identifier, "KALVEX:memory:LimitTooSmall");
    EXPECT_THAT(error.arguments, ElementsAre(HasSubstr("read"), HasSubstr("MB"), "1.0 MB"));
    limit("64MB");
    EXPECT_THAT(gather(aggregate("count", x)), ElementsAre(600'000));
    EXPECT_EQ(fact("memoryLimitBytes"), 64e6);
    EXPECT_GT(fact("memoryPeakBytes"), 5e5);
    EXPECT_LE(fact("memoryPeakBytes"), 64e6);
  }
}

TEST_F(Memory, AResultThatIsTooLargeIsRefusedAndOthersAreMadeOnce) {
  const Value x = numbers(3, 200'000);
  const std::int64_t bytes = 600'000 * 8;
  const auto few = [&] { return filter(element("lt", x, 500), x); };
  for (const int threads : {1, 8}) {
    setThreads(threads);
    setMemoryLimit(bytes);
    for (const Value& rows : {element("plus", x, threads), few()}) {
      const auto error = errorOf([&] { gather(rows); });
      EXPECT_EQ(error.identifier, "KALVEX:memory:ResultTooLarge");
      EXPECT_THAT(error.arguments, ElementsAre(testing::_, HasSubstr("MB"), "4.8 MB"));
    }
  }
  setMemoryLimit(8'600'000);                  // not enough for twice the result
  for (const double addend : {10, 11, 12}) {  // earlier results are garbage
    EXPECT_EQ(gather(element("plus", x, addend)).size(), 600'000u);
  }
}

TEST_F(Memory, KeptValuesCountAndResultsOfKnownSizeAreRefusedAtOnce) {
  const Value x = numbers(1, 200'000);
  gather(x);
  setMemoryLimit(3'000'000);
  const auto error = errorOf([&] { gather(element("plus", x, x)); });
  EXPECT_EQ(error.identifier, "KALVEX:memory:ResultTooLarge");
  EXPECT_THAT(error.arguments, ElementsAre(HasSubstr("plus"), "3.2 MB", "3.0 MB"));
  EXPECT_GT(gather(aggregate("sum", x)).at(0), 0);
}

TEST_F(Memory, EvaluationsInsideOfUsersFunctionsDrawOnTheSameLimit) {
  const Value many = numbers(2, 200'000);  // 3.2 MB when they are gathered
  const std::vector<std::string> paths{folder.path("m0.csv"), folder.path("m1.csv")};
  const Value few = column(table({"x\n1\n", "x\n2\n"}), "x");
  const auto largest = [&](host::CallMode mode) {
    const host::NativeBody body = [&paths](const host::Call& call) {
      const Value files =
          host::call("kalvex.io.CsvDatastore", {host::makeStringColumn(paths).get()});
      const Value y = column(host::call("createFromDatastoreBuiltin", {files.get()}), "x");
      const Value rows = host::makeDouble(static_cast<double>(gather(y).size()));
      call.out(0, host::call("kv.element.plus", {call.in(0), rows.get()}));
    };
    const Value function = host::makeFunctionHandle("gathers", body, mode);
    const Value all = host::call("elementfun", {function.get(), few.get()});
    return gather(aggregate("max", all)).at(0);
  };
  setMemoryLimit("9MB");
  for (const int threads : {1, 4}) {
    for (const auto mode : {host::CallMode::Session, host::CallMode::AnyThread}) {
      setThreads(threads);
      EXPECT_EQ(largest(mode), 400'002);
      const Value kept = element("plus", many, threads);
      gather(kept);
      const auto error = errorOf([&] { largest(mode); });
      EXPECT_THAT(error.identifier,
                  AnyOf("KALVEX:memory:LimitTooSmall", "KALVEX:memory:ResultTooLarge"));
      EXPECT_THAT(error.message, HasSubstr("9.0 MB"));
      EXPECT_THAT(gather(aggregate("max", kept)), ElementsAre(999.5 + threads)) << "still usable";
    }
  }
  EXPECT_LE(fact("memoryPeakBytes"), 9e6);
}

TEST_F(Memory, TheEnvironmentHasTheDefault) {
  const char* set = std::getenv("KV_MEMORY_LIMIT");
  const std::string before = set != nullptr ? set : "";
  const Value x = numbers(1, 10);
  ::setenv("KV_MEMORY_LIMIT", "48MiB", 1);
  gather(aggregate("sum", x));
  EXPECT_EQ(fact("memoryLimitBytes"), 48 << 20);
  ::setenv("KV_MEMORY_LIMIT", "much", 1);
  const auto error = errorOf([&] { gather(aggregate("max", x)); });
  EXPECT_THAT(error.message, HasSubstr("got KV_MEMORY_LIMIT=much"));
  ::setenv("KV_MEMORY_LIMIT", before.c_str(), 1);
  EXPECT_THAT(gather(aggregate("max", x)), ElementsAre(9.5));
}

}  // namespace

}  // namespace kv::runtime::test

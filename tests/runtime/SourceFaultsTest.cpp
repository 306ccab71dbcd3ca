#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <iterator>
#include <map>
#include <memory>
#include <random>
#include <string>
#include <system_error>
#include <vector>

#include "runtime/fileBytes.h"
#include "runtime/readAll.h"
#include "source/BlockDatastore.h"
#include "source/SourceFile.h"
#include "source/csv/CsvDatastore.h"
#include "source/parquet/parquetBlocks.h"
#include "support/Seed.h"
#include "support/SystemCalls.h"
#include "support/TempFolder.h"
#include "support/Worlds.h"

namespace kv::runtime {

namespace {

using kv::test::Fault;
using kv::test::FileCall;
using kv::test::runTraced;
using kv::test::TempFolder;
using kv::test::TracedRun;
using test::readAll;

struct FaultRow {
  const char* name;
  Fault::Kind kind;
  int error;
};

constexpr FaultRow kFaults[] = {
    {"EIO", Fault::Kind::fail, EIO},
    {"EINTR", Fault::Kind::fail, EINTR},
    {"a short read", Fault::Kind::shorten, 0},
};

/// `count` rows, of which the first column is `x` and the second `t`, or missing; in CSV also a
/// third one.
struct Rows {
  int count;
  double x;
  const char* t;
  std::size_t width;  ///< of the third column
};

std::string csvOf(const Rows& rows) {
  std::string text = "x,t,more\n";
  for (int row = 0; row < rows.count; ++row) {
    text += std::to_string(rows.x) + "," + rows.t + "," + std::string(rows.width, 'm') + "\n";
  }
  return text;
}

std::string gzipOf(const Rows& rows) {
  return test::compressed(csvOf(rows), arrow::Compression::GZIP);
}

std::string parquetOf(const Rows& rows) {
  const auto count = static_cast<std::size_t>(rows.count);
  return test::parquetBytes({{"x", test::doubles(std::vector(count, rows.x))},
                             {"t", test::texts(std::vector<std::string>(count, rows.t))}},
                            {.groupRows = 200});
}

/// A form in which a table of two files is read.
struct Form {
  const char* name;
  const char* ending;
  std::size_t width;  ///< of a column, if there is one
  std::string (*bytesOf)(const Rows& rows);
  std::unique_ptr<Datastore> (*open)(const std::string& folder);
};

using Paths = std::vector<std::string>;

const Form kForms[] = {
    {"csv", ".csv", 4'000, csvOf,
     [](const std::string& folder) -> std::unique_ptr<Datastore> {
       return std::make_unique<CsvDatastore>(Paths{folder});
     }},
    {"ranges", ".csv", 40, csvOf,
     [](const std::string& folder) -> std::unique_ptr<Datastore> {
       return std::make_unique<CsvDatastore>(Paths{folder}, std::vector<TypeOverride>{},
                                             CsvFormat{}, 9'000);
     }},
    {"gzip", ".csv.gz", 400, gzipOf,
     [](const std::string& folder) -> std::unique_ptr<Datastore> {
       return std::make_unique<CsvDatastore>(Paths{folder});
     }},
    {"parquet", ".parquet", 0, parquetOf,
     [](const std::string& folder) -> std::unique_ptr<Datastore> {
       return std::make_unique<BlockDatastore>(kParquetBlocks, Paths{folder},
                                               std::vector<TypeOverride>{}, 1);
     }},
};

/// The number of files that are still open.
class OpenFiles {
 public:
  kv::test::CallObserver observer() {
    return {.after = [this](const FileCall& call) {
      open_ += call.name == "openat" && call.result >= 0 ? 1 : 0;
      open_ -= call.name == "close" ? 1 : 0;
    }};
  }
  int count() const { return open_; }

 private:
  int open_ = 0;
};

/// Two files in a folder; the first has several blocks, ranges or row groups, and only the second
/// has a value that decides a column's type.
class SourceFaults : public testing::TestWithParam<Form> {
 protected:
  void SetUp() override {
    if (!kv::test::canTrace()) {
      GTEST_SKIP() << "processes can't be traced here";
    }
    // At rest: opening a file that was just written waits for the clock.
    first_ =
        folder_.writeAtRest("a" + ending(), GetParam().bytesOf({300, 1, "", GetParam().width}));
    folder_.writeAtRest("b" + ending(), GetParam().bytesOf({1, 2, "text", 0}));
  }

  static std::string ending() { return GetParam().ending; }

  /// "read", another sum, the last part of an error's id with one of these texts, or another error.
  std::string outcomeOf(const std::string& path, const std::string& reason) const {
    const std::int64_t before = arrow::default_memory_pool()->bytes_allocated();
    std::string outcome;
    try {
      double sum = 0;
      readAll(*GetParam().open(folder_.path()), {"x", "t"}, [&](const Chunk& chunk) {
        for (const double x : chunk.columns[0].values<double>()) {
          sum += x;
        }
      });
      outcome = sum == 302 ? "read" : "sum " + std::to_string(sum);
    } catch (const errors::StepError& error) {
      const std::string text = error.what();
      const bool isReported =
          text.find(path) != std::string::npos && text.find(reason) != std::string::npos;
      outcome = isReported ? error.id().substr(error.id().rfind(':') + 1) : text;
    }
    const std::int64_t left = arrow::default_memory_pool()->bytes_allocated() - before;
    return outcome + (left == 0 ? "" : ", and " + std::to_string(left) + " bytes are left");
  }

  TempFolder folder_;
  std::string first_;
};

TEST_P(SourceFaults, AFailingCallIsReportedWithItsFileOrHasNoConsequence) {
  const std::string folder = folder_.path();
  const TracedRun whole = runTraced([&] { return outcomeOf(folder, ""); });
  ASSERT_EQ(*whole.outcome, "read");
  std::vector<std::size_t> sourceCalls;
  for (std::size_t call = 0; call < whole.calls.size(); ++call) {
    if (whole.calls[call] != "other") {
      sourceCalls.push_back(call);
    }
  }
  constexpr std::size_t kKinds = std::size(kForms) * std::size(kFaults);
  std::mt19937 random(static_cast<std::mt19937::result_type>(kv::test::drawSeed()));
  for (const FaultRow& row : kFaults) {
    const std::string reason = std::generic_category().message(row.error);
    std::map<std::string, int> outcomes;
    const std::size_t step = 1 + sourceCalls.size() * kKinds / kv::test::sizes().faults;
    for (std::size_t at = random() % step; at < sourceCalls.size(); at += step) {
      const Fault fault{sourceCalls[at], row.kind, row.error};
      OpenFiles files;
      const TracedRun run = runTraced(
          [&] {
            const std::string first = outcomeOf(folder, reason);
            return first + ", then " + outcomeOf(folder, reason);  // a failure leaves nothing
          },
          fault, files.observer());
      ++outcomes[*run.outcome];
      // The allocator's calls depend on time: the fault may meet another call than in the whole
      // run, even one of the second reading, or none.
      const std::string call = fault.call < run.calls.size() ? run.calls[fault.call] : "other";
      const bool mayFail = row.error != 0 && !(row.error == EINTR && call == "pread");
      const bool isReported = *run.outcome == "FileNotReadable, then read" ||
                              *run.outcome == "read, then FileNotReadable";
      ASSERT_TRUE(*run.outcome == "read, then read" || (mayFail && isReported))
          << *run.outcome << ": " << row.name << " at " << call << ", call " << fault.call;
      ASSERT_EQ(files.count(), 0) << row.name << " at " << call << ", call " << fault.call;
    }
    std::printf("%s-io, %s:", GetParam().name, row.name);
    for (const auto& [outcome, count] : outcomes) {
      std::printf(" %d %s;", count, outcome.c_str());
    }
    std::printf(" each as it must be\n");
    constexpr std::size_t kEnough = 8;  // some calls, such as those of the allocator, may fail
    EXPECT_TRUE(row.error != EIO || sourceCalls.size() / step < kEnough ||
                outcomes.contains("FileNotReadable, then read"));
  }
}

TEST_P(SourceFaults, AFileThatIsCutBeforeAnyReadIsNoticed) {
  std::map<std::string, int> outcomes;
  for (int number = 0; outcomes["read"] == 0 && number < 1000; ++number) {
    const std::string bytes = GetParam().bytesOf({300, 1, "", GetParam().width});
    folder_.writeAtRest("a" + ending(), bytes);
    int reads = 0;
    OpenFiles files;
    kv::test::CallObserver observer = files.observer();
    observer.before = [&](const FileCall& call) {
      if (call.name == "pread" && reads++ == number) {
        std::filesystem::resize_file(first_, bytes.size() / 2);
      }
    };
    const TracedRun run = runTraced([&] { return outcomeOf(first_, ""); }, {}, observer);
    EXPECT_EQ(files.count(), 0);
    ++outcomes[*run.outcome];
  }
  // Read is what comes after the last byte of that file was read, and after the last read of all.
  EXPECT_EQ(outcomes.size(), 2u) << testing::PrintToString(outcomes);
  EXPECT_GT(outcomes["SourceChanged"], 1);
}

INSTANTIATE_TEST_SUITE_P(Forms, SourceFaults, testing::ValuesIn(kForms),
                         [](const auto& form) { return std::string(form.param.name); });

}  // namespace
}  // namespace kv::runtime

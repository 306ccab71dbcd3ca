#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <map>
#include <system_error>
#include <tuple>

#include "kv/runtime/csv.h"
#include "runtime/readAll.h"
#include "source/ReadRetries.h"
#include "source/SourceFile.h"
#include "support/SystemCalls.h"
#include "support/TempFolder.h"

namespace kv::runtime {

namespace {

using kv::test::Fault;
using kv::test::runTraced;
using kv::test::TempFolder;
using kv::test::TracedRun;
using test::readAll;

struct Row {
  const char* name;
  Fault::Kind kind;
  int error;
};

constexpr Row kFaults[] = {
    {"EIO", Fault::Kind::fail, EIO},           {"EMFILE", Fault::Kind::fail, EMFILE},
    {"EACCES", Fault::Kind::fail, EACCES},     {"EINTR", Fault::Kind::fail, EINTR},
    {"a short read", Fault::Kind::shorten, 0},
};

/// Two files in a folder; the first has several blocks, and a late value decides a column's type.
class CsvFaults : public testing::Test {
 protected:
  void SetUp() override {
    if (!kv::test::canTrace()) {
      GTEST_SKIP() << "processes can't be traced here";
    }
    std::string rows = "x,t,more\n";
    for (int row = 0; row < 300; ++row) {
      rows += "1,," + std::string(4'000, 'm') + "\n";
    }
    // At rest before calls are counted: opening a file that was just written waits for the clock.
    SourceFile::stat(folder_.write("a.csv", rows));
    SourceFile::stat(folder_.write("b.csv", "x,t,more\n2,text,\n"));
  }

  /// "read", another sum, or "reported" for an error that is as it must be.
  std::string outcomeOf(const std::string& reason) {
    try {
      double sum = 0;
      readAll(*openCsv({folder_.path()}), {"x", "t"}, [&](const Chunk& chunk) {
        for (const double x : chunk.columns[0].values<double>()) {
          sum += x;
        }
      });
      return sum == 302 ? "read" : "sum " + std::to_string(sum);
    } catch (const errors::StepError& error) {
      const std::string text = error.what();
      const bool isReported = text.find(folder_.path()) != std::string::npos &&
                              text.find(reason) != std::string::npos &&
                              error.id() == "KALVEX:datastore:FileNotReadable";
      return isReported ? "reported" : error.id() + ": " + text;
    }
  }

  TempFolder folder_;
};

TEST_F(CsvFaults, AFailingCallIsReportedOrHasNoConsequence) {
  const TracedRun whole = runTraced([&] { return outcomeOf(""); });
  ASSERT_EQ(*whole.outcome, "read");
  for (const Row& row : kFaults) {
    const std::string reason = std::generic_category().message(row.error);
    std::map<std::string, int> outcomes;
    for (Fault fault{0, row.kind, row.error}; fault.call < whole.calls.size(); ++fault.call) {
      if (whole.calls[fault.call] == "other") {
        continue;
      }
      const TracedRun run = runTraced(
          [&] {
            const std::string first = outcomeOf(reason);
            return first + ", then " + outcomeOf(reason);  // the failure must leave nothing
          },
          fault);
      ++outcomes[*run.outcome];
      // The allocator's calls depend on time: the fault may meet another call than in the whole
      // run, even one of the second reading, or none.
      const std::string call = fault.call < run.calls.size() ? run.calls[fault.call] : "other";
      const bool mayFail = row.error != 0 && !(row.error == EINTR && call == "pread");
      const bool isReported =
          *run.outcome == "reported, then read" || *run.outcome == "read, then reported";
      ASSERT_TRUE(*run.outcome == "read, then read" || (mayFail && isReported))
          << *run.outcome << ": " << row.name << " at " << call << ", call " << fault.call;
    }
    std::printf("csv-io, %s:", row.name);
    for (const auto& [outcome, count] : outcomes) {
      std::printf(" %d %s;", count, outcome.c_str());
    }
    std::printf(" each as it must be\n");
    EXPECT_EQ(outcomes.contains("reported, then read"), row.error != 0);
  }
}

TEST_F(CsvFaults, AReadThatFailedIsRepeatedAsOftenAsAllowed) {
  const TracedRun whole = runTraced([&] { return outcomeOf(""); });
  const auto last = std::ranges::find(whole.calls.rbegin(), whole.calls.rend(), "pread");
  const auto call = static_cast<std::size_t>(whole.calls.rend() - last) - 1;
  for (const auto& [retries, error, outcome] :
       {std::tuple(0, EIO, "reported"), std::tuple(1, EIO, "read"),
        std::tuple(1, EISDIR, "reported")}) {
    const auto read = [&, most = retries, reason = std::generic_category().message(error)] {
      const ReadRetries inForce(most);
      return outcomeOf(reason);
    };
    TracedRun run;
    do {  // the allocator's calls depend on time: the fault may meet another one
      run = runTraced(read, Fault{call, Fault::Kind::fail, error});
    } while (call >= run.calls.size() || run.calls[call] != "pread");
    EXPECT_EQ(run.outcome, outcome) << retries << " retries of " << error;
  }
}

}  // namespace
}  // namespace kv::runtime

#include <gmock/gmock.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <map>
#include <system_error>

#include "HostSession.h"
#include "support/SystemCalls.h"
#include "support/TempFolder.h"

namespace kv::test {

namespace {

namespace fs = std::filesystem;

const std::string kOld(40'000, 'o');
const std::string kNew(50'000, 'n');

constexpr std::size_t kEndOfWork = 2'000;  // far beyond the calls of any save or load

/// Saves and loads of one file, in processes that are killed or whose calls fail.
class FileFaults : public HostSession {
 protected:
  void SetUp() override {
    if (!canTrace()) {
      GTEST_SKIP() << "processes can't be traced here";
    }
  }

  void save(const std::string& text) { session.save(path, host::makeChars(text).get()); }
  std::string load() { return host::toText(session.load(path, false).get()); }

  TracedRun saveTraced(const Fault& fault) {
    return runTraced([&] { return failure([&] { save(kNew); }); }, fault);
  }

  TracedRun loadTraced(const Fault& fault) {
    return runTraced(
        [&] {
          std::string text;
          const std::string error = failure([&] { text = load(); });
          return error == "no error" && text != kOld ? "another text" : error;
        },
        fault);
  }

  /// What is at the path: "old", "new", "nothing", or "a part", which must never be.
  std::string standing() {
    if (!fs::exists(path)) {
      return "nothing";
    }
    std::string text;
    const std::string error = failure([&] { text = load(); });
    return error != "no error" ? "a part" : text == kOld ? "old" : text == kNew ? "new" : text;
  }

  std::size_t leftovers() const {
    const auto files = fs::directory_iterator(folder.path());
    return static_cast<std::size_t>(std::count_if(
        fs::begin(files), fs::end(files),
        [](const fs::directory_entry& file) { return file.path().extension() == ".kvtmp"; }));
  }

  TempFolder folder;
  const std::string path = folder.path("a.kv");
};

struct KillFigures {
  std::size_t calls = 0;
  std::size_t kills = 0;
  std::size_t leftovers = 0;
  std::map<std::string, std::size_t> standing;
};

using SaveKill = FileFaults;

TEST_F(SaveKill, AtAnySystemCallLeavesTheOldOrTheNewFileAndTheNextSaveCleansUp) {
  for (const bool hasOld : {true, false}) {
    KillFigures figures;
    for (Fault fault; fault.call < kEndOfWork; ++fault.call) {
      bool hasReachedEnd = false;
      for (const auto kind : {Fault::Kind::killBefore, Fault::Kind::killAfter}) {
        fs::remove(path);
        if (hasOld) {
          save(kOld);
        }
        fault.kind = kind;
        const TracedRun run = saveTraced(fault);
        hasReachedEnd = run.calls.size() <= fault.call;
        figures.calls = std::max(figures.calls, run.calls.size());
        figures.kills += run.outcome ? 0u : 1u;
        figures.leftovers += leftovers();
        ++figures.standing[standing()];
        ASSERT_THAT(standing(), ::testing::AnyOf(hasOld ? "old" : "nothing", "new"))
            << "killed at " << run.calls.back();
        save(kNew);
        ASSERT_EQ(leftovers(), 0u);
        ASSERT_EQ(standing(), "new");
      }
      if (hasReachedEnd) {
        break;
      }
    }
    EXPECT_GT(figures.standing[hasOld ? "old" : "nothing"], 0u);
    EXPECT_GT(figures.standing["new"], 0u);
    EXPECT_GT(figures.leftovers, 0u);
    std::printf(
        "save-kill %s: %zu kills at %zu system calls; %zu times what was there before, %zu times "
        "the new file; %zu leftovers, all removed by the next save\n",
        hasOld ? "over an older file" : "of a first file", figures.kills, figures.calls,
        figures.standing[hasOld ? "old" : "nothing"], figures.standing["new"], figures.leftovers);
  }
}

struct Row {
  const char* name;
  Fault::Kind kind;
  int error;
};

constexpr Row kFaults[] = {
    {"EIO", Fault::Kind::fail, EIO},
    {"ENOSPC", Fault::Kind::fail, ENOSPC},
    {"EINTR", Fault::Kind::fail, EINTR},
    {"a short read or write", Fault::Kind::shorten, 0},
};

bool isFailure(const Row& row) { return row.error == EIO || row.error == ENOSPC; }

std::string expectedError(const std::string& id, const std::string& path, const Row& row) {
  return id + " | " + path + " | " + std::generic_category().message(row.error);
}

void printFigures(const char* what, const Row& row, const std::map<std::string, int>& outcomes) {
  std::printf("save-io, %s with %s:", what, row.name);
  for (const auto& [outcome, count] : outcomes) {
    std::printf(" %d %s,", count, outcome.c_str());
  }
  std::printf(" each as it must be\n");
}

using SaveIo = FileFaults;

TEST_F(SaveIo, AFailingCallOfASaveIsReportedAndLeavesTheOldFile) {
  for (const Row& row : kFaults) {
    std::map<std::string, int> outcomes;
    for (Fault fault{0, row.kind, row.error}; fault.call < kEndOfWork; ++fault.call) {
      fs::remove(path);
      save(kOld);
      const TracedRun run = saveTraced(fault);
      if (run.calls.size() <= fault.call) {
        break;
      }
      const std::string& call = run.calls[fault.call];
      const bool isInPlace =
          std::ranges::count(run.calls.begin(), run.calls.begin() + long(fault.call), "rename") > 0;
      const bool mustFail = isFailure(row) && (call == "write" || call == "fsync" ||
                                               call == "rename" || call == "fchmod");
      ++outcomes[*run.outcome == "no error" ? "saved" : "errors"];
      ASSERT_EQ(leftovers(), 0u) << call;
      if (*run.outcome == "no error") {
        ASSERT_FALSE(mustFail) << call;
        ASSERT_EQ(standing(), "new") << call;
      } else {
        ASSERT_TRUE(isFailure(row)) << call << ": " << *run.outcome;
        ASSERT_EQ(*run.outcome, expectedError("KALVEX:save:CannotWrite", path, row)) << call;
        ASSERT_EQ(standing(), isInPlace ? "new" : "old") << call;
      }
    }
    printFigures("saves", row, outcomes);
    EXPECT_EQ(outcomes["errors"] > 0, isFailure(row));
  }
}

TEST_F(SaveIo, AFailingCallOfALoadIsReported) {
  save(kOld);
  for (const Row& row : kFaults) {
    std::map<std::string, int> outcomes;
    for (Fault fault{0, row.kind, row.error}; fault.call < kEndOfWork; ++fault.call) {
      const TracedRun run = loadTraced(fault);
      if (run.calls.size() <= fault.call) {
        break;
      }
      const std::string& call = run.calls[fault.call];
      const bool mustFail = isFailure(row) && (call == "openat" || call == "read");
      ++outcomes[*run.outcome == "no error" ? "loaded" : "errors"];
      ASSERT_EQ(standing(), "old");
      if (mustFail || *run.outcome != "no error") {
        ASSERT_EQ(*run.outcome, expectedError("KALVEX:load:CannotRead", path, row)) << call;
      }
    }
    printFigures("loads", row, outcomes);
    EXPECT_EQ(outcomes["errors"] > 0, isFailure(row));
  }
}

}  // namespace
}  // namespace kv::test

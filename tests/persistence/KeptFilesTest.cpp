#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <map>

#include "LoadingSession.h"

namespace kv::test {

namespace {

namespace fs = std::filesystem;

constexpr const char* kLazyClasses[] = {"Closure", "ClosureFuture", "ClosurePromise"};

/// The number of objects of the lazy graph, by class.
std::map<std::string, std::size_t> countLazyObjects(LoadingSession& session) {
  std::map<std::string, std::size_t> counts;
  for (const char* name : kLazyClasses) {
    const std::string full = std::string("kalvex.bigdata.internal.lazyeval.") + name;
    counts[name] = session.host().liveObjects(full);
  }
  return counts;
}

std::string savedField(LoadingSession& session, const Value& graph, std::string_view name) {
  return session.save(matrix::sharedCopy(kxGetField(graph.get(), 0, name)));
}

/// Compares a kept file with the same graph made today. The ids of its closures are those of the
/// process that saved it; everything else must be equal, byte for byte once it is saved again.
void expectTodaysGraph(const fs::path& path) {
  SCOPED_TRACE(path);
  LoadingSession keeping;
  LoadingSession making;
  const Value kept = keeping.host().load(path, false);
  const Value made = making.graph();
  for (const std::string_view field : {"Plain", "Things"}) {
    EXPECT_EQ(savedField(keeping, kept, field), savedField(making, made, field)) << field;
  }
  EXPECT_EQ(countLazyObjects(keeping), countLazyObjects(making));
  EXPECT_EQ(keeping.liveObjects(), making.liveObjects());
  EXPECT_EQ(keeping.takeUserCalls(), 0u);
}

/// Every release adds a file here, written with KV_WRITE_KEPT=1. All later releases must load it.
TEST(KeptFiles, OfEveryReleaseCanBeLoaded) {
  const fs::path current = fs::path(KV_KEPT) / (std::string(KV_RELEASE) + ".kv");
  if (std::getenv("KV_WRITE_KEPT") != nullptr) {
    LoadingSession session;
    session.host().save(current, session.graph().get());
  }
  EXPECT_TRUE(fs::exists(current)) << "KV_WRITE_KEPT=1 writes it, once per release";
  std::size_t files = 0;
  for (const auto& entry : fs::directory_iterator(KV_KEPT)) {
    expectTodaysGraph(entry.path());
    ++files;
  }
  std::printf("kept: %zu files of releases up to %s loaded\n", files, KV_RELEASE);
}

}  // namespace
}  // namespace kv::test

#include <gtest/gtest.h>

#include <chrono>
#include <cstdio>
#include <filesystem>

#include "LoadingSession.h"
#include "support/SmallStack.h"
#include "support/TempFolder.h"
#include "support/Worlds.h"

namespace kv::test {

namespace {

constexpr auto kClosure = "kalvex.bigdata.internal.lazyeval.Closure";

double secondsOf(const std::function<void()>& work) {
  const auto start = std::chrono::steady_clock::now();
  work();
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

void saveAndLoadAChain() {
  const std::size_t closures = sizes().chain;
  const TempFolder folder;
  const std::string path = folder.path("chain.kv");
  double saved = 0;
  {
    LoadingSession session;
    const Value array = session.chain(closures);
    saved = secondsOf([&] { session.host().save(path, array.get()); });
  }
  LoadingSession session;
  const std::size_t before = session.liveObjects();
  Value array;
  const double loaded = secondsOf([&] { array = session.host().load(path, false); });
  EXPECT_EQ(session.host().liveObjects(kClosure), closures);
  const double released = secondsOf([&] {
    array.reset();
    EXPECT_EQ(session.liveObjects(), before);
  });
  const auto bytes = static_cast<double>(std::filesystem::file_size(path));
  std::printf("deep: chain of %zu closures, stack of %zu KiB\n", closures, kSmallStackBytes / 1024);
  std::printf("deep:   save %.3f s, %.0f bytes a closure; load %.3f s; release %.3f s\n", saved,
              bytes / static_cast<double>(closures), loaded, released);
}

TEST(DeepSave, AChainIsSavedAndLoadedOnASmallStack) { runOnSmallStack(saveAndLoadAChain); }

}  // namespace
}  // namespace kv::test

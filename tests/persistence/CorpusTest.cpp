#include <gtest/gtest.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>

#include "LoaderTrial.h"
#include "RefittedFile.h"

namespace kv::test {

namespace {

std::string contentsOf(const std::filesystem::path& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

/// The seeds of `make fuzz` and its earlier findings.
TEST(Corpus, FollowsTheRules) {
  std::size_t files = 0;
  {
    LoaderTrial trial;
    for (const auto& entry : std::filesystem::directory_iterator(KV_CORPUS)) {
      const std::string file = contentsOf(entry.path());
      EXPECT_EQ(trial.load(file), "") << entry.path();
      EXPECT_EQ(trial.load(withFittingHeader(file)), "") << entry.path();
      ++files;
    }
  }
  EXPECT_GT(files, 0u);
  EXPECT_EQ(host::ledger().objects, 0u);
  std::printf("corpus: %zu files replayed\n", files);
}

}  // namespace
}  // namespace kv::test

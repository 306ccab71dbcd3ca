#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <random>

namespace kv::test {

/// The seed of a test that draws its cases: KV_SEED if that is set, else a new one.
///
/// It is printed, so that what failed can be run again.
inline std::uint64_t drawSeed() {
  const char* given = std::getenv("KV_SEED");
  const std::uint64_t seed =
      given != nullptr ? std::strtoull(given, nullptr, 10) : std::random_device()();
  const ::testing::TestInfo* test = ::testing::UnitTest::GetInstance()->current_test_info();
  std::printf("KV_SEED=%llu: %s\n", static_cast<unsigned long long>(seed),
              test == nullptr ? "" : test->name());
  return seed;
}

}  // namespace kv::test

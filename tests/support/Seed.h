#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <random>

namespace kv::test {

/// The seed of a randomised test: KV_SEED if it is set, otherwise a new one.
///
/// It is printed, so that a failure can be reproduced.
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

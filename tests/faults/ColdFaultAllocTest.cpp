#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <string>

#include "faults/FailingMemory.h"
#include "faults/Scenario.h"
#include "support/Worlds.h"

namespace kv::test {

namespace {

/// A number that a process shares with its forked children.
class SharedNumber {
 public:
  SharedNumber()
      : number_(
            static_cast<std::uint64_t*>(mmap(nullptr, sizeof(std::uint64_t), PROT_READ | PROT_WRITE,
                                             MAP_SHARED | MAP_ANONYMOUS, -1, 0))) {}
  ~SharedNumber() { munmap(number_, sizeof(std::uint64_t)); }
  SharedNumber(const SharedNumber&) = delete;
  SharedNumber& operator=(const SharedNumber&) = delete;
  std::uint64_t& operator*() const { return *number_; }

 private:
  std::uint64_t* number_;
};

/// Runs `isGood` in a copy of this process. Result: its result; false if the copy died.
template <class Test>
bool holdsInChild(Test isGood) {
  std::fflush(nullptr);
  const pid_t child = fork();
  if (child == 0) {
    _exit(isGood() ? 0 : 1);
  }
  int status = 0;
  waitpid(child, &status, 0);
  return WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

/// Allocations that fail in a process that has done nothing yet: what a process makes once and
/// keeps is made under the fault, in a copy of a process that stays fresh itself. So these tests
/// run in a separate process.
class ColdFaultAlloc : public testing::TestWithParam<ScenarioRow> {
 protected:
  static std::uint64_t count() {
    const SharedNumber asked;
    EXPECT_TRUE(holdsInChild([&] {
      const auto scenario = GetParam().make();
      const FailingMemory memory({}, Shortage::Once);
      const Outcome outcome = Outcome::of(*scenario);
      *asked = memory.asked();
      return true;
    }));
    return *asked;
  }

  /// The work either fails with a documented error or succeeds, and then succeeds when repeated.
  static bool survives(FaultPlaces places, Shortage shortage) {
    const auto scenario = GetParam().make();
    const Outcome outcome = [&] {
      const FailingMemory memory(places, shortage);
      return Outcome::of(*scenario);
    }();
    const std::string first = outcome.text();
    const std::string second = Outcome::of(*scenario).text();
    const std::string third = Outcome::of(*scenario).text();
    const bool isGood = second == third && (first == kOutOfMemory || first == second);
    if (!isGood) {
      std::printf("ended in: %s; then: %s; then: %s\n", first.c_str(), second.c_str(),
                  third.c_str());
    }
    return isGood;
  }
};

TEST_P(ColdFaultAlloc, WhatAProcessMakesOnceIsMadeAgainAfterAFailure) {
  const std::uint64_t allocations = count();
  std::uint64_t trials = 0;
  for (const Shortage shortage : {Shortage::Once, Shortage::Lasts}) {
    for (const FaultPlaces places : singleFaults(allocations, sizes().faults / 10)) {
      ++trials;
      ASSERT_TRUE(holdsInChild([&] { return survives(places, shortage); }))
          << "allocation " << places.text() << nameOf(shortage);
    }
  }
  std::printf("fault-alloc: %s, in a new process: %llu allocations, %llu failures let in\n",
              GetParam().name, static_cast<unsigned long long>(allocations),
              static_cast<unsigned long long>(trials));
}

INSTANTIATE_TEST_SUITE_P(Scenarios, ColdFaultAlloc,
                         testing::ValuesIn(scenarios().begin(), scenarios().end()), testName);

}  // namespace
}  // namespace kv::test

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <string>
#include <utility>
#include <vector>

#include "faults/FailingMemory.h"
#include "faults/Scenario.h"
#include "support/Worlds.h"

namespace kv::test {

namespace {

/// Resources of the process that one run of a scenario must give back.
struct Holdings {
  host::Ledger ledger = host::ledger();
  std::int64_t bytes = liveBytes();

  bool operator==(const Holdings& other) const {
    return ledger.objects == other.ledger.objects && ledger.arrays == other.ledger.arrays &&
           ledger.payloads == other.ledger.payloads &&
           ledger.payloadBytes == other.ledger.payloadBytes && bytes == other.bytes;
  }
};

std::string difference(const Holdings& before, const Holdings& after) {
  const auto text = [](const char* what, auto a, auto b) {
    return std::to_string(static_cast<std::int64_t>(b) - static_cast<std::int64_t>(a)) + " " + what;
  };
  return text("objects, ", before.ledger.objects, after.ledger.objects) +
         text("arrays, ", before.ledger.arrays, after.ledger.arrays) +
         text("payloads, ", before.ledger.payloads, after.ledger.payloads) +
         text("bytes", before.bytes, after.bytes);
}

/// The findings of one run with a fault. Allocates nothing if there are none, so that leaks can be
/// counted around it.
struct Trial {
  bool isError = false;
  std::string fault;  ///< the broken rule, in words
};

class FaultAlloc : public testing::TestWithParam<ScenarioRow> {
 protected:
  static std::string outcome() {
    const auto scenario = GetParam().make();
    return Outcome::of(*scenario).text();
  }

  /// Number of allocations in a run without a fault.
  static std::uint64_t count() {
    const auto scenario = GetParam().make();
    const FailingMemory memory({}, Shortage::Once);
    const Outcome outcome = Outcome::of(*scenario);
    return memory.asked();
  }

  static Trial run(FaultPlaces places, Shortage shortage, const std::string& expected) {
    Trial trial;
    const auto scenario = GetParam().make();
    const Outcome outcome = [&] {
      const FailingMemory memory(places, shortage);
      Outcome ended = Outcome::of(*scenario);
      return memory.asked() < places.second ? Outcome::of(*scenario) : std::move(ended);
    }();
    const std::string text = outcome.text();
    trial.isError = text == kOutOfMemory;
    if (!trial.isError && text != expected) {
      trial.fault += "It ended in: " + text + "\n";
    }
    if (host::Session* session = scenario->session()) {
      session->collect();
      for (const std::string& broken : session->verify()) {
        trial.fault += "The heap is broken: " + broken + "\n";
      }
    }
    if (const std::string again = Outcome::of(*scenario).text(); again != expected) {
      trial.fault += "The same work then ended in: " + again + "\n";
    }
    return trial;
  }

  /// The same, with the resources left at the end. Objects that the process makes once and keeps
  /// are not counted the second time.
  static Trial runAndWeigh(FaultPlaces places, Shortage shortage, const std::string& expected) {
    const Holdings before;
    Trial trial = run(places, shortage, expected);
    const Holdings after;
    if (trial.fault.empty() && before != after) {
      static_cast<void>(run(places, shortage, expected));
      const Holdings later;
      trial.fault = later != after ? "It leaves behind: " + difference(after, later) : "";
    }
    return trial;
  }
};

TEST_P(FaultAlloc, EachFailureIsOneDocumentedErrorAndLeavesNothing) {
  const std::string expected = outcome();
  const std::uint64_t allocations = count();
  std::uint64_t trials = 0;
  std::uint64_t errors = 0;
  const auto tryAll = [&](const std::vector<FaultPlaces>& all, Shortage shortage) {
    for (const FaultPlaces places : all) {
      const Trial trial = runAndWeigh(places, shortage, expected);
      ++trials;
      errors += trial.isError ? 1u : 0u;
      ASSERT_EQ(trial.fault, "") << "allocation " << places.text() << nameOf(shortage);
    }
  };
  for (const Shortage shortage : {Shortage::Once, Shortage::Lasts}) {
    tryAll(singleFaults(allocations, sizes().faults), shortage);
  }
  tryAll(pairsOfFaults(allocations), Shortage::Once);
  std::printf("fault-alloc: %s: %llu allocations, %llu failures let in, %llu ended in an error\n",
              GetParam().name, static_cast<unsigned long long>(allocations),
              static_cast<unsigned long long>(trials), static_cast<unsigned long long>(errors));
}

INSTANTIATE_TEST_SUITE_P(Scenarios, FaultAlloc,
                         testing::ValuesIn(scenarios().begin(), scenarios().end()), testName);

}  // namespace
}  // namespace kv::test

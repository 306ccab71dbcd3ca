#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <iterator>
#include <optional>
#include <string>
#include <vector>

#include "faults/FailingHost.h"
#include "faults/Scenario.h"
#include "kv/host/values.h"
#include "support/Worlds.h"

namespace kv::test {

namespace {

using host::Value;

Value ask(host::Session& session, const char* function) {
  return std::move(session.call(function, 1, {}).front());
}

/// True if the failure isn't reported, by the core's rule: if the call fails that restores a random
/// stream, the stream stays. Also true if nothing failed.
bool isSilent(const std::string& operation) {
  return operation.empty() || operation.find("RandStream.setGlobalStream") != std::string::npos;
}

/// True if the work may go on: an evaluation keeps the session for itself where it can't note the
/// user's line, and has none from there on where it can't restore it.
bool isOfUserLine(const std::string& operation) {
  return operation.find("userStackBuiltin") != std::string::npos ||
         operation.find("InternalStackFrame") != std::string::npos;
}

/// The state of a session that a fault must not change.
class SessionState {
 public:
  explicit SessionState(host::Session& session)
      : session_(session), stream_(ask(session, "RandStream.getGlobalStream")) {}

  /// What has changed or is broken after `operation` failed, in words; empty if nothing.
  std::string change(const std::string& operation) {
    std::string found;
    if (!isSilent(operation) &&
        !kxIsSameValue(stream_.get(), ask(session_, "RandStream.getGlobalStream").get())) {
      found += "another random stream is in force\n";
    }
    if (host::toLogical(ask(session_, "hasInternalStackFramesBuiltin").get())) {
      found += "a user's stack is left in its slot\n";
    }
    session_.collect();
    for (const std::string& broken : session_.verify()) {
      found += "the heap is broken: " + broken + "\n";
    }
    return found;
  }

 private:
  host::Session& session_;
  Value stream_;
};

struct Trial {
  std::string outcome;
  std::string fault;  ///< the broken rule, in words
};

/// An operation that raises ends the work with its id, unless it isn't reported or the work was
/// repeated. A wrong result ends it with an error of the product, or had no effect.
bool isAllowed(HostFault fault, const std::string& outcome, const std::string& expected,
               bool mayBeRight) {
  if (fault == HostFault::Raises) {
    return outcome == kTestFault || (outcome == expected && mayBeRight);
  }
  return !outcome.starts_with("exception ") && outcome != "error KALVEX:NativeException";
}

class FaultHost : public testing::TestWithParam<ScenarioRow> {
 protected:
  static std::uint64_t count(HostFault fault) {
    const auto scenario = GetParam().make();
    const FailingHost host({}, fault);
    const Outcome outcome = Outcome::of(*scenario);
    return host.asked();
  }

  static Trial run(FaultPlaces places, HostFault fault, const std::string& expected) {
    const host::Ledger before = host::ledger();
    Trial trial;
    {
      const auto scenario = GetParam().make();
      std::optional<SessionState> state;
      if (host::Session* session = scenario->session()) {
        state.emplace(*session);
      }
      std::string operation;
      const Outcome outcome = [&] {
        const FailingHost host(places, fault);
        Outcome ended = Outcome::of(*scenario);
        if (host.asked() < places.second) {
          ended = Outcome::of(*scenario);
        }
        operation = host.failed();
        return ended;
      }();
      trial.outcome = outcome.text();
      const bool mayBeRight = isSilent(operation) || isOfUserLine(operation) || places.second != 0;
      if (!isAllowed(fault, trial.outcome, expected, mayBeRight)) {
        trial.fault += "ended in: " + trial.outcome + "\n";
      }
      if (state) {
        trial.fault += state->change(operation);
      }
      // A wrong result that was accepted may remain in what the work made.
      const bool wasTaken = fault != HostFault::Raises && !trial.outcome.starts_with("error ");
      const std::string again = Outcome::of(*scenario).text();
      if (!wasTaken && again != expected) {
        trial.fault += "the same work then ended in: " + again + "\n";
      }
      if (!trial.fault.empty()) {
        trial.fault += operation + " " + nameOf(fault);
      }
    }
    const host::Ledger after = host::ledger();
    if (after.objects != before.objects || after.arrays != before.arrays ||
        after.payloads != before.payloads || after.payloadBytes != before.payloadBytes) {
      trial.fault += "something is left behind";
    }
    return trial;
  }
};

TEST_P(FaultHost, EachFailureIsReportedAsItIsAndChangesNothing) {
  const std::string expected = Outcome::of(*GetParam().make()).text();
  for (const HostFault fault :
       {HostFault::Raises, HostFault::AnswersNull, HostFault::AnswersOther}) {
    const std::uint64_t operations = count(fault);
    std::vector<FaultPlaces> all = singleFaults(operations, sizes().faults);
    if (fault == HostFault::Raises) {
      std::ranges::copy(pairsOfFaults(operations), std::back_inserter(all));
    }
    std::uint64_t unnoticed = 0;
    for (const FaultPlaces places : all) {
      const Trial trial = run(places, fault, expected);
      unnoticed += trial.outcome == expected ? 1u : 0u;
      EXPECT_EQ(trial.fault, "") << "operation " << places.text();
    }
    std::printf("fault-host: %s: %llu operations, %zu faults: %s; %llu without effect\n",
                GetParam().name, static_cast<unsigned long long>(operations), all.size(),
                nameOf(fault), static_cast<unsigned long long>(unnoticed));
  }
}

INSTANTIATE_TEST_SUITE_P(Scenarios, FaultHost,
                         testing::ValuesIn(scenarios().begin(), scenarios().end()), testName);

}  // namespace
}  // namespace kv::test

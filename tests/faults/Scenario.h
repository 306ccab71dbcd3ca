#pragma once

#include <gtest/gtest.h>

#include <exception>
#include <memory>
#include <ostream>
#include <span>
#include <string>

#include "kv/host/session.h"

/// The pieces of work that faults are let into.
///
/// To add one: derive a class from Scenario in one of the files beside this one (from
/// RuntimeScenario in RuntimeScenario.h, if it works by name in a session of the host) and give it
/// a row in `scenarios()`. Every group then runs it, at each of its allocations and calls.
namespace kv::test {

/// Work in a session. What it needs is made by its constructor, where nothing fails; destroying it
/// closes its session.
class Scenario {
 public:
  virtual ~Scenario() = default;

  /// Does the work. The same answer each time, in the same session, whatever went wrong before.
  virtual std::string run() = 0;

  /// The session that the work is done in, for a look at its state; null if `run` opens its own.
  virtual host::Session* session() { return nullptr; }
};

struct ScenarioRow {
  const char* name;
  std::unique_ptr<Scenario> (*make)();
};

/// How GoogleTest writes a row.
inline void PrintTo(const ScenarioRow& row, std::ostream* out) { *out << row.name; }

/// The name of a row where it has to be an identifier.
std::string testName(const testing::TestParamInfo<ScenarioRow>& row);

std::span<const ScenarioRow> scenarios();

/// How a piece of work ended.
class Outcome {
 public:
  /// Runs the work. Allocates nothing besides, so that it may run while nothing can be allocated.
  static Outcome of(Scenario& scenario) noexcept;

  /// The answer, or the id of the error: "error KALVEX:OutOfMemory". What is neither an error of
  /// the host nor of a front end tells its type: "exception std::bad_alloc".
  /// Requires: a session of the error that is still open.
  std::string text() const;

 private:
  std::string answer_;
  std::exception_ptr error_;
};

}  // namespace kv::test

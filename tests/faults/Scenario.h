#pragma once

#include <gtest/gtest.h>

#include <exception>
#include <memory>
#include <ostream>
#include <span>
#include <string>

#include "kv/host/session.h"

/// The pieces of work into which faults are injected.
///
/// To add one: derive a class from Scenario in one of the files of this folder (from
/// RuntimeScenario in RuntimeScenario.h, if it uses calls by name in a session of the host) and add
/// a row to `scenarios()`. Every group then runs it, at each of its allocations and calls.
namespace kv::test {

/// Work in a session. The constructor prepares what it needs, without faults; the destructor closes
/// its session.
class Scenario {
 public:
  virtual ~Scenario() = default;

  /// Does the work. Returns the same each time, in the same session, whatever failed before.
  virtual std::string run() = 0;

  /// The session in which the work is done, for checks of its state; null if `run` opens its own.
  virtual host::Session* session() { return nullptr; }
};

struct ScenarioRow {
  const char* name;
  std::unique_ptr<Scenario> (*make)();
};

/// How GoogleTest prints a row.
inline void PrintTo(const ScenarioRow& row, std::ostream* out) { *out << row.name; }

/// The name of a row as an identifier.
std::string testName(const testing::TestParamInfo<ScenarioRow>& row);

std::span<const ScenarioRow> scenarios();

/// How a piece of work ended.
class Outcome {
 public:
  /// Runs the work. Allocates nothing itself, so it can run when nothing can be allocated.
  static Outcome of(Scenario& scenario) noexcept;

  /// The result, or the id of the error: "error KALVEX:OutOfMemory". For an exception that is
  /// neither an error of the host nor of a front end, its type: "exception std::bad_alloc".
  /// Requires: the session of the error is still open.
  std::string text() const;

 private:
  std::string answer_;
  std::exception_ptr error_;
};

}  // namespace kv::test

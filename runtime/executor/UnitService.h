#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <variant>

#include "engine/runUnit.h"
#include "executor/FreeFunctions.h"
#include "kv/runtime/SessionLease.h"

namespace kv::runtime {

/// The stage whose units are run, and what they need besides.
///
/// Lives: longer than the service that runs them.
struct StageScope {
  const Stage& stage;
  UserFunctions& functions;  ///< called on the client thread, the one that evaluates
  const ExecutionContext& context;
  SessionLease* lease = nullptr;                 ///< released while units run; null for none
  const FreeFunctions* freeFunctions = nullptr;  ///< null for none
};

/// That stage, with what a service finds out about it when it begins.
struct BegunStage {
  /// Errors: those of StageRows.
  explicit BegunStage(const StageScope& stage) : scope(stage), rows(stage.stage) {}

  StageScope scope;
  StageRows rows;
};

/// A unit that has no result, because what ran it is gone, such as a process on another machine.
struct UnitLoss {
  std::int64_t partition = 0;
  std::string reason{};
};

/// How a unit ended. A failure of the unit is part of its result.
using UnitOutcome = std::variant<UnitResult, UnitLoss>;

/// Runs the units of one stage: in this thread, in others, or elsewhere.
///
/// 1. `begin` is called once, before all else.
/// 2. Units are submitted in ascending order of partitions. One that was lost, or was refused
///    memory, may be submitted again.
/// 3. Results may come in any order; OrderedMerge restores that of partitions.
///
/// A service in this process loses no unit: what ends its threads ends the process.
///
/// Threads: called on the client thread.
class UnitService {
 public:
  virtual ~UnitService() = default;

  /// Gives the stage to all that will run its units.
  /// Errors: those of StageRows.
  virtual void begin(const StageScope& stage) = 0;

  /// Takes a unit of the stage in its byte form.
  virtual void submit(std::string unit) = 0;

  /// The next result or loss; none when all units that were submitted have ended.
  /// Errors: those of runUnit().
  virtual std::optional<UnitOutcome> next() = 0;

  /// How many units may run at the same time.
  virtual std::int64_t threads() const = 0;

  /// How many units may be submitted ahead of those whose results were merged: enough to keep the
  /// service busy, few enough that early results don't fill the memory.
  virtual std::int64_t window() const = 0;

  /// Cancels the units of the partitions after `partition`, whose results aren't needed any more:
  /// those that haven't begun never do, those in progress end within a chunk, and none has
  /// a result or is lost.
  virtual void cancelAfter(std::int64_t partition) = 0;
};

}  // namespace kv::runtime

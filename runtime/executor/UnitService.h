#pragma once

#include <cstdint>
#include <optional>
#include <string>

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

/// Runs the units of one stage: in this thread, in others, or elsewhere.
///
/// 1. Units are submitted in ascending order of partitions.
/// 2. Results may come in any order; OrderedMerge restores that of partitions.
///
/// Threads: called on the client thread.
class UnitService {
 public:
  virtual ~UnitService() = default;

  /// Takes a unit in its byte form.
  virtual void submit(std::string unit) = 0;

  /// The next result; none when all units that were submitted have returned theirs.
  /// Errors: those of runUnit().
  virtual std::optional<UnitResult> next() = 0;

  /// How many units may run at the same time.
  virtual std::int64_t threads() const = 0;

  /// How many units may be submitted ahead of those whose results were merged: enough to keep the
  /// service busy, few enough that early results don't fill the memory.
  virtual std::int64_t window() const = 0;

  /// Cancels the units of the partitions after `partition`, whose results aren't needed any more:
  /// those that haven't begun never do, those in progress end within a chunk, and none has a
  /// result.
  virtual void cancelAfter(std::int64_t partition) = 0;
};

}  // namespace kv::runtime

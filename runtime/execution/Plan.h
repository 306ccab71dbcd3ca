#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

#include "execution/OpSpec.h"
#include "kv/host/values.h"

namespace kv::runtime {

/// An input of a task: an output of another task, or a value that is there already.
struct PlanInput {
  int task = -1;  ///< index in the plan; -1 for a value
  std::size_t output = 0;
  host::Value value;
  host::Value metadata;  ///< of a value that was gathered in partitions; else null
};

/// An execution task, with what the plan has found out about it.
///
/// 1. A task is partitioned if its result has rows in partitions: it flows in chunks, in pass
/// `pass`,
///    and is computed anew in each later pass that needs it.
/// 2. Any other task has whole values, which are there once `pass` passes are over (0: before the
///    first).
struct PlanTask {
  std::string id;
  std::shared_ptr<const OpSpec> spec;
  host::Value factory;  ///< its DataProcessorFactory
  std::vector<PlanInput> inputs;
  bool isPartitioned = false;
  int pass = 0;

  /// True if the task runs in the client on whole values, with no chunk in sight.
  bool runsInClient = false;
};

/// An output of a task that somebody waits for.
struct PlanResult {
  int task = 0;
  std::size_t output = 0;
  host::Value promise;
};

/// Tasks in dependency order and the results that are wanted from them, cut into passes over the
/// data. Its size follows the number of operations.
///
/// Lives: within one evaluation; it holds host values.
struct Plan {
  std::vector<PlanTask> tasks;
  std::vector<PlanResult> results;
  int passes = 0;

  /// A partitioned output whose rows must be kept when pass `pass` runs, because it is wanted or
  /// because a client task reads it whole.
  struct Kept {
    int task = 0;
    std::size_t output = 0;
  };
  std::vector<Kept> keptIn(int pass) const;

  /// Aggregates that pass `pass` completes.
  std::vector<int> aggregatesOf(int pass) const;

  /// `sinks` and all partitioned tasks that they need in a pass, in dependency order.
  std::vector<int> upstreamOf(const std::vector<int>& sinks) const;
};

/// Makes the plan of a task graph: a LazyTaskGraph whose tasks the runtime made.
///
/// `promises`: an object array of the promises that are waited for; those of broadcast outputs are
/// completed too.
/// Errors: "KALVEX:array:NotRunnable" with the class of an operation that brings no runnable task.
Plan makePlan(const kxArray* taskGraph, const kxArray* promises);

/// The plan as text: a line a step, pass by pass.
std::string describePlan(const Plan& plan);

}  // namespace kv::runtime

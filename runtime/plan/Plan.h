#pragma once

#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "column/RowPlaces.h"
#include "kv/host/values.h"
#include "plan/OpSpec.h"

namespace kv::runtime {

/// An input of a task: an output of another task, or a value that is there already.
struct PlanInput {
  int task = -1;  ///< index in the plan; -1 for a value
  std::size_t output = 0;
  host::Value value{};
  std::shared_ptr<const RowPlaces> places{};  ///< of a value whose rows are those of a source
};

/// An execution task, with what the plan has found out about it.
///
/// 1. A task is partitioned if its result has rows in partitions: it flows in chunks, and is
///    computed anew in each pass that needs it. Values whose places are known flow as well.
/// 2. Any other task has whole values, once it has run in the client or at the end of a pass.
struct PlanTask {
  std::string id;
  std::shared_ptr<const OpSpec> spec;
  host::Value factory;  ///< its DataProcessorFactory
  std::vector<PlanInput> inputs;
  bool isPartitioned = false;

  /// True if the task runs in the client on whole values, with no chunk in sight.
  bool runsInClient = false;

  /// Of a choice between rows and a value: the rows for which the value is repeated.
  std::optional<PlanInput> spreadOver{};
};

/// An output of a task whose promise is completed.
struct PlanResult {
  int task = 0;
  std::size_t output = 0;
  host::Value promise;  ///< null: none is completed
  bool isAsked = true;  ///< false: completed only if something that was asked for needs the value
};

/// Tasks in dependency order and the results that are asked of them. Its size follows the number
/// of operations. What runs when is up to Schedule.
///
/// Lives: within one evaluation; it holds host values.
struct Plan {
  std::vector<PlanTask> tasks;
  std::vector<PlanResult> results;

  const PlanTask& task(int index) const { return tasks[static_cast<std::size_t>(index)]; }

  /// True if an input's rows flow in chunks.
  bool flows(const PlanInput& input) const {
    return input.task >= 0 ? task(input.task).isPartitioned : input.places != nullptr;
  }
};

/// Makes the plan of a task graph: a LazyTaskGraph whose tasks the runtime made.
///
/// `asked`, `others`: object arrays of promises; those of `others` are completed if it costs no
/// work that `asked` doesn't need.
/// Errors: "KALVEX:array:NotRunnable" with the class of an operation that brings no runnable task.
Plan makePlan(const kxArray* taskGraph, const kxArray* asked, const kxArray* others);

/// Makes the plan of one task, an ExecutionTask whose inputs are there. Its outputs are the
/// results, without promises.
Plan makePlan(const host::Value& task);

/// The plan as text: a line for each step, pass by pass; of the steps that a pass repeats, where
/// they are many, only how many. Steps that depend on a condition that isn't known yet say so.
std::string describePlan(const Plan& plan);

}  // namespace kv::runtime

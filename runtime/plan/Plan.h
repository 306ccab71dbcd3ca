#pragma once

#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "column/RowPlaces.h"
#include "operator/OpSpec.h"
#include "source/Fingerprint.h"

namespace kv::runtime {

/// An input of a task: an output of another task, or a value that is there already.
struct PlanInput {
  int task = -1;                              ///< index in the plan; -1 for a value
  std::size_t output = 0;                     ///< of the task
  std::size_t value = 0;                      ///< number of the value
  std::shared_ptr<const RowPlaces> places{};  ///< of a value whose rows are those of a source
  std::optional<Hash128> constant{};          ///< of a constant that the user wrote: its content
  bool staysInSession = false;  ///< a value that other sessions can't be given, such as an object
};

/// An execution task, with what the plan has found out about it.
///
/// 1. A task is partitioned if its result has rows in partitions: it flows in chunks, and is
///    computed anew in each pass that needs it. Values whose places are known flow as well.
/// 2. A task that makes rows, such as a step by key, ends a pass; its results are whole and rows at
///    once: they flow in later passes, as values whose places are known do.
/// 3. Any other task has materialised values, once it has run in the client or at the end of a
/// pass.
struct PlanTask {
  std::string id{};
  std::shared_ptr<const OpSpec> spec{};
  std::size_t factory = 0;  ///< number of its processor factory
  std::vector<PlanInput> inputs{};
  bool isPartitioned = false;
  bool makesRows = false;

  /// Which user-defined functions it calls; none if another task that calls the same may give
  /// other values.
  std::optional<Hash128> functions{};

  /// True if the task runs in the client on materialised values, with no chunk in sight.
  bool runsInClient = false;

  /// Of a choice whose condition is a value: whether that is true.
  std::optional<bool> knownCondition{};

  /// Of a task that makes rows of its own: their row space.
  std::string rowSpace{};

  /// Of a choice between rows and a value: the rows for which the value is repeated.
  std::optional<PlanInput> spreadOver{};
};

/// True if a task's result has rows of its own, made from those of its inputs.
inline bool renewsRows(const PlanTask& task) {
  return task.spec->op != nullptr && task.spec->op->facts().rows == RowEffect::Renew;
}

/// An output of a task that the evaluation is to complete.
struct PlanResult {
  int task = 0;
  std::size_t output = 0;
  bool isAsked = true;  ///< false: completed only if something that was asked for needs the value
};

/// Tasks in dependency order and the results that are asked of them: plain values, without a host.
/// Values, processor factories and promises are numbers here; PlanHandles (driver/) has the objects
/// that they mean. The size follows the number of operations. What runs when is up to Schedule.
struct Plan {
  std::vector<PlanTask> tasks;
  std::vector<PlanResult> results;

  const PlanTask& task(int index) const { return tasks[static_cast<std::size_t>(index)]; }

  /// True if an input has rows, which flow in chunks.
  bool flows(const PlanInput& input) const {
    return input.task < 0 ? input.places != nullptr : flowsInPass(input) || makesRows(input);
  }

  /// True if these rows are computed in the pass that they flow in.
  bool flowsInPass(const PlanInput& input) const {
    return input.task >= 0 && task(input.task).isPartitioned;
  }

  /// True if these rows are there before the pass that they flow in.
  bool makesRows(const PlanInput& input) const {
    return input.task >= 0 && task(input.task).makesRows;
  }
};

}  // namespace kv::runtime

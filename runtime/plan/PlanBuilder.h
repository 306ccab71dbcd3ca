#pragma once

#include <optional>
#include <vector>

#include "plan/Plan.h"

namespace kv::runtime {

/// Adds tasks to a plan: finds out which have rows, and for each what decides on its rows: the
/// nearest source, filter or choice. A value that a choice repeats needs these rows, and none of
/// their elements.
///
/// Lives: within the plan's life.
class PlanBuilder {
 public:
  explicit PlanBuilder(Plan& plan) : plan_(plan) {}

  /// Result: the index of the task; tasks of the plan's own may come before it.
  /// Requires: the tasks of its inputs were added.
  int add(PlanTask task);

 private:
  int push(PlanTask task);
  std::optional<PlanInput> firstFlowing(const PlanTask& task);
  PlanInput deciderOf(const PlanInput& input);
  int decidingTask(int index);
  std::optional<PlanInput> decideChoice(PlanTask& task);

  Plan& plan_;
  std::vector<std::optional<PlanInput>> deciders_;  ///< of each task; found when first asked for
};

}  // namespace kv::runtime

#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "plan/Plan.h"
#include "source/Fingerprint.h"

namespace kv::runtime {

/// What something was made from, as a hash.
struct Provenance {
  Hash128 hash{};
  bool isCertain = true;  ///< false: others with another hash may be the same nevertheless
};

/// Which rows an array has.
struct RowSpace {
  Provenance rows{};                 ///< of the source, and what changed them
  Hash128 source{};                  ///< of the source alone; zero where a choice decides on it
  const Datastore* store = nullptr;  ///< that is read; null for rows in memory
};

/// Two inputs of a task that can't be combined row by row.
struct RowConflict {
  int task = 0;
  PlanInput input;
  PlanInput other;
};

/// The row space of each task, and where a task combines two that are certain to differ.
///
/// Lives: within the plan's life. Cost: linear in the size of the plan.
class RowSpaces {
 public:
  explicit RowSpaces(const Plan& plan);

  const std::vector<RowConflict>& conflicts() const { return conflicts_; }

  /// The row space of the rows that a task makes, as a text that names it in places: the same for
  /// all tasks by the same keys.
  /// Requires: the task makes rows.
  std::string nameOf(int task) const;

  /// Refuses a conflict.
  /// Errors: "KALVEX:array:DifferentSources" with the names of both sources;
  ///         "KALVEX:array:RowsDiffer" with the origins of both inputs (StepError).
  [[noreturn]] void refuse(const RowConflict& conflict) const;

 private:
  void add(int task);
  Provenance keysOf(int task) const;
  Provenance valueOf(const PlanInput& input) const;
  std::vector<Provenance> valuesOf(int task) const;
  RowSpace spaceOf(const PlanInput& input) const;
  RowSpace spaceOf(int task) const;
  std::vector<const PlanInput*> flowingInputs(int task) const;
  const PlanInput* surestOf(const std::vector<const PlanInput*>& inputs) const;
  std::string originOf(const PlanInput& input, bool withRows) const;

  const Plan& plan_;
  std::vector<std::vector<Provenance>> values_;  ///< by task and output
  std::vector<RowSpace> spaces_;                 ///< by task; meaningless for one without rows
  std::vector<RowConflict> conflicts_;
};

}  // namespace kv::runtime

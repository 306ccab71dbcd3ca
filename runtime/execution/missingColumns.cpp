#include "execution/missingColumns.h"

#include <fmt/format.h>

#include <algorithm>
#include <string>
#include <vector>

#include "execution/Stage.h"
#include "kv/runtime/DataError.h"
#include "kv/runtime/shownText.h"

namespace kv::runtime {
namespace {

/// All tasks of a plan as steps, whatever pass they belong to.
std::vector<StageStep> stepsOf(const Plan& plan) {
  std::vector<StageStep> steps;
  for (const PlanTask& task : plan.tasks) {
    StageStep step{task.spec, {}};
    for (const PlanInput& input : task.inputs) {
      if (input.task >= 0) {
        step.inputs.push_back(static_cast<std::size_t>(input.task));
      }
    }
    steps.push_back(std::move(step));
  }
  return steps;
}

void throwIfMissing(const Datastore& source, const std::string& name) {
  const Schema& schema = source.schema();
  if (std::ranges::find(schema, name, &ColumnInfo::name) != schema.end()) {
    return;
  }
  std::vector<std::string> names;
  for (const ColumnInfo& column : schema) {
    names.push_back(column.name);
  }
  const std::string known = shownNames(names);
  throw DataError("KALVEX:datastore:MissingColumn", {source.displayName(), name, known},
                  fmt::format("'{}' has no column '{}', which a saved array reads; it has: {}.",
                              source.displayName(), shownText(name), known));
}

}  // namespace

void throwIfColumnsAreMissing(const Plan& plan) {
  const std::vector<StageStep> steps = stepsOf(plan);
  const std::vector<ColumnNeeds> needs = columnNeeds(steps);
  for (std::size_t i = 0; i < steps.size(); ++i) {
    if (steps[i].spec->source != nullptr) {
      for (const std::string& name : needs[i].names) {
        throwIfMissing(*steps[i].spec->source, name);
      }
    }
  }
}

}  // namespace kv::runtime

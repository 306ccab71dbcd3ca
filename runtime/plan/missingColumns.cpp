#include "plan/missingColumns.h"

#include <algorithm>
#include <memory>
#include <string>
#include <vector>

#include "kv/errors/StepError.h"
#include "kv/errors/shownText.h"
#include "plan/lowerPass.h"
#include "plan/stepNeeds.h"

namespace kv::runtime {

namespace {

void throwIfMissing(const Datastore& source, const std::string& name) {
  const Schema& schema = source.schema();
  if (std::ranges::find(schema, name, &ColumnInfo::name) != schema.end()) {
    return;
  }
  std::vector<std::string> names;
  for (const ColumnInfo& column : schema) {
    names.push_back(column.name);
  }
  const std::string known = errors::shownNames(names);
  errors::raiseStep("KALVEX:datastore:MissingColumn", {source.displayName(), name, known});
}

}  // namespace

void throwIfColumnsAreMissing(const Plan& plan) {
  const std::vector<Step> steps = lowerAll(plan).steps;
  const std::vector<ColumnNeeds> needs = needsOfSteps(steps);
  for (std::size_t i = 0; i < steps.size(); ++i) {
    if (const auto* read = steps[i].op->as<ReadOperator>()) {
      for (const std::string& name : needs[i].names) {
        throwIfMissing(*read->source(), name);
      }
    }
  }
}

}  // namespace kv::runtime

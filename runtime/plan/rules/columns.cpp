#include <algorithm>
#include <map>
#include <string>
#include <vector>

#include "plan/rules/rules.h"
#include "plan/stepNeeds.h"

namespace kv::runtime {

namespace {

bool hasAll(const Schema& schema, const std::set<std::string>& names) {
  return std::ranges::all_of(names, [&](const std::string& name) {
    return std::ranges::find(schema, name, &ColumnInfo::name) != schema.end();
  });
}

}  // namespace

// Several steps may read one source. They get the same rows, and so the columns that any of them
// needs.
void readNeededColumns(PassGraph& graph) {
  const std::vector<ColumnNeeds> asked = needsOfSteps(graph.steps);
  std::map<std::string, ColumnNeeds> ofSources;  // by fingerprint
  for (std::size_t i = 0; i < graph.steps.size(); ++i) {
    if (const auto* read = graph.steps[i].op->as<ReadOperator>()) {
      ofSources[read->source()->fingerprint()].add(asked[i]);
    }
  }
  for (Step& step : graph.steps) {
    const auto* read = step.op->as<ReadOperator>();
    if (read == nullptr) {
      continue;
    }
    const auto source = read->source();
    const ColumnNeeds& needs = ofSources.at(source->fingerprint());
    if (hasAll(source->schema(), needs.names)) {
      step.op = makeRead(source, needs.columnsOf(source->schema()));
    }
  }
}

}  // namespace kv::runtime

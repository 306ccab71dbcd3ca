#include <algorithm>
#include <string>
#include <vector>

#include "plan/columnNeeds.h"
#include "plan/rules/rules.h"

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
  const std::vector<ColumnNeeds> asked = columnNeeds(graph.steps);
  ColumnNeeds ofSource;
  for (std::size_t i = 0; i < graph.steps.size(); ++i) {
    if (graph.steps[i].op->source() != nullptr) {
      ofSource.add(asked[i]);
    }
  }
  for (Step& step : graph.steps) {
    const auto source = step.op->source();
    if (source != nullptr && hasAll(source->schema(), ofSource.names)) {
      step.op = makeRead(source, ofSource.columnsOf(source->schema()));
    }
  }
}

}  // namespace kv::runtime

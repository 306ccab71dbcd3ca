#include "engine/chunkSteps.h"

#include <fmt/core.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <cstdint>
#include <string>

#include "kv/errors/StepError.h"
#include "kv/errors/shownText.h"

namespace kv::runtime {

Chunk takeVariables(const OpSpec& spec, const Chunk& table) {
  if (table.names == nullptr) {
    errors::raiseStep("KALVEX:array:NeedsTable", {spec.label});
  }
  Chunk taken{table.partition, table.ordinals, nullptr, {}};
  for (const std::string& variable : spec.variables) {
    const auto found = std::find(table.names->begin(), table.names->end(), variable);
    if (found == table.names->end()) {
      errors::raiseStep("KALVEX:array:UnknownColumn", {variable, errors::shownNames(*table.names)});
    }
    taken.columns.push_back(table.columns[static_cast<std::size_t>(found - table.names->begin())]);
  }
  if (!spec.content) {
    taken.names = std::make_shared<const std::vector<std::string>>(spec.variables);
  }
  return taken;
}

bool isConditionTrue(const Column& condition) {
  if (condition.type() != ElementType::Logical || condition.rows() != 1) {
    errors::raiseStep("KALVEX:array:Condition", {fmt::format("{} rows of type {}", condition.rows(),
                                                             elementTypeName(condition.type()))});
  }
  if (condition.isMissing()) {
    errors::raiseStep("KALVEX:array:Condition", {"a missing one"});
  }
  return condition.values<std::uint8_t>().front() != 0;
}

void requireType(const OpSpec& spec, const Column& result) {
  if (spec.givesLogical && result.type() != ElementType::Logical) {
    errors::raiseStep("KALVEX:array:NotLogical",
                      {spec.label, std::string(elementTypeName(result.type()))});
  }
}

bool haveSameRows(const RowOrdinals& a, const RowOrdinals& b) {
  if (a.rows() != b.rows()) {
    return false;
  }
  if (a.rows() == 0 || (a.isRange() && b.isRange())) {
    return a.rows() == 0 || a.at(0) == b.at(0);
  }
  for (std::int64_t row = 0; row < a.rows(); ++row) {
    if (a.at(row) != b.at(row)) {
      return false;
    }
  }
  return true;
}

}  // namespace kv::runtime

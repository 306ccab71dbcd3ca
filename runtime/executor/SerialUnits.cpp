#include "executor/SerialUnits.h"

#include <cassert>
#include <utility>

#include "executor/LeasedFunctions.h"

namespace kv::runtime {

std::optional<UnitOutcome> SerialUnits::next() {
  if (units_.empty()) {
    return std::nullopt;
  }
  assert(stage_);
  const StageScope& scope = stage_->scope;
  const std::string unit = std::move(units_.front());
  units_.pop_front();
  UnitResult result;
  {
    LeasedFunctions functions(scope.functions, scope.lease);
    result = runUnit(scope.stage, stage_->rows, unit, functions, scope.context);
  }
  scope.functions.endPartition(result.partition);
  return result;
}

}  // namespace kv::runtime

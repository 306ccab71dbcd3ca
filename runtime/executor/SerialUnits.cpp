#include "executor/SerialUnits.h"

#include <utility>

#include "executor/LeasedFunctions.h"

namespace kv::runtime {

std::optional<UnitResult> SerialUnits::next() {
  if (units_.empty()) {
    return std::nullopt;
  }
  const std::string unit = std::move(units_.front());
  units_.pop_front();
  UnitResult result;
  {
    LeasedFunctions functions(scope_.functions, scope_.lease);
    result = runUnit(scope_.stage, rows_, unit, functions, scope_.context);
  }
  scope_.functions.endPartition(result.partition);
  return result;
}

}  // namespace kv::runtime

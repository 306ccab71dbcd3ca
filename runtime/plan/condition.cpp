#include "plan/condition.h"

#include <fmt/core.h>

#include <cstdint>

#include "kv/errors/StepError.h"

namespace kv::runtime {

bool isConditionTrue(const Column& condition) {
  if (condition.type() != ElementType::Logical || condition.rows() != 1) {
    errors::raiseStep("KALVEX:array:Condition", {fmt::format("{} rows of type {}", condition.rows(),
                                                             elementTypeName(condition.type()))});
  }
  if (condition.isNull(0)) {
    errors::raiseStep("KALVEX:array:Condition", {"a missing one"});
  }
  return condition.values<std::uint8_t>().front() != 0;
}

}  // namespace kv::runtime

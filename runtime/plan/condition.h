#pragma once

#include "kv/runtime/Column.h"

namespace kv::runtime {

/// The value of a choice's condition.
/// Errors: "KALVEX:array:Condition" with what it is, unless it is one logical (StepError).
bool isConditionTrue(const Column& condition);

}  // namespace kv::runtime

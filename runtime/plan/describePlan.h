#pragma once

#include <cstddef>
#include <functional>
#include <string>

#include "plan/Plan.h"
#include "plan/Rule.h"

namespace kv::runtime {

/// How a plan shows a value, by its number.
using ShowValue = std::function<std::string(std::size_t value)>;

/// The plan as text: a line for each step, pass by pass, with what the step does after `rules`; of
/// the steps that a pass repeats, where they are many, only how many. Steps that depend on a
/// condition that isn't known yet say so.
///
/// Cost: linear in the size of the plan for each pass; reads no data.
std::string describePlan(const Plan& plan, const ShowValue& showValue, const Rules& rules);

}  // namespace kv::runtime

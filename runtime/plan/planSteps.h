#pragma once

#include <vector>

#include "engine/Stage.h"
#include "plan/Plan.h"
#include "plan/Schedule.h"

namespace kv::runtime {

/// Tasks of a plan as steps, one each, for the question which columns they ask for. A choice passes
/// on to its branches what is asked of it: to the one that is taken, or to both where that isn't
/// known.
///
/// `tasks`: in ascending order; in place of inputs from other tasks are values.
std::vector<Step> stepsOf(const Plan& plan, const std::vector<int>& tasks,
                          const Schedule& schedule);

}  // namespace kv::runtime

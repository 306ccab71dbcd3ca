#pragma once

#include <cstddef>
#include <vector>

#include "engine/Stage.h"
#include "plan/Plan.h"
#include "plan/Rule.h"
#include "plan/Schedule.h"

namespace kv::runtime {

/// The steps of the tasks whose rows flow in a pass to its sinks, after all rules that are switched
/// on: a task is a step, as is the keeping of rows; where rows meet that are cut differently, or a
/// function needs frames, there is a flow step between (engine/cuts.h). A choice whose branch is
/// known is no step, but the step of that branch. Of a choice that isn't known yet, which only
/// `explain` may lower, the step passes on both.
///
/// Cost: linear in the size of the plan.
PassGraph lowerPass(const Plan& plan, const Schedule& schedule, const std::vector<PassSink>& sinks,
                    const Rules& rules);

/// The steps of all tasks that run over rows, without sinks and rules, whichever pass they are in.
PassGraph lowerAll(const Plan& plan);

}  // namespace kv::runtime

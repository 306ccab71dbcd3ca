#pragma once

#include <vector>

#include "driver/wholeValues.h"
#include "plan/Plan.h"

namespace kv::runtime {

/// Runs a task once on whole values that aren't known to be rows of a source: a function, or the
/// taking of columns or rows. A choice is given the value that its condition chose.
///
/// Result: an entry for each output.
/// Errors: those of the task.
std::vector<WholeValue> runClientTask(const PlanTask& task, const std::vector<WholeValue>& inputs);

/// Reduces what the chunks of a user's aggregate gave, one list an output, by its second function.
std::vector<WholeValue> reducePartials(const kxArray* factory, std::size_t numOutputs,
                                       const std::vector<host::Value>& partials);

}  // namespace kv::runtime

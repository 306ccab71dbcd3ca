#pragma once

#include <vector>

#include "execution/Plan.h"
#include "execution/wholeValues.h"

namespace kv::runtime {

/// Runs a task on whole values, once: a function, or the taking of columns or rows.
///
/// Result: an entry an output.
/// Errors: as raiseStepFailure, with the line where the operation was made.
std::vector<WholeValue> runClientTask(const PlanTask& task, const WholeValues& values);

/// Reduces what the chunks of a user's aggregate gave, one list an output, by its second function.
std::vector<WholeValue> reducePartials(const kxArray* factory, std::size_t numOutputs,
                                       const std::vector<host::Value>& partials);

}  // namespace kv::runtime

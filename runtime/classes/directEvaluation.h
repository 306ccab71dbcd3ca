#pragma once

#include "kv/host/values.h"

namespace kv::runtime {

/// directEvaluateImpl(operation, inputs...): the function on whole values, at once. Rows of a
/// source run as they would have run with it, chunk by chunk.
void directEvaluate(const host::Call& call);

}  // namespace kv::runtime

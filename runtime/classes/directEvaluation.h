#pragma once

#include "kv/host/values.h"

namespace kv::runtime {

/// directEvaluateImpl(operation, inputs...): applies the function to materialised values at once.
/// Rows of a source are processed chunk by chunk, as in a pass over the source.
void directEvaluate(const host::Call& call);

}  // namespace kv::runtime

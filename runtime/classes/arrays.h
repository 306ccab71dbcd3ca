#pragma once

#include <span>

#include "kv/host/values.h"

namespace kv::runtime {

/// What has to run to give arrays their values.
struct EvaluationObjects {
  host::Value taskGraph;  ///< null if all values are available
  host::Value executor;
  host::Value promises;  ///< the pending promises of the arrays, each once, in order
};

/// Plans the evaluation of `arrays`. Inputs that are complete or not lazy arrays need nothing.
///
/// Errors: "KALVEX:bigdata:array:IncompatibleTallExecutor"; those of planning.
EvaluationObjects evaluationObjects(std::span<const kxArray* const> arrays);

}  // namespace kv::runtime

#pragma once

#include <span>

#include "kv/host/values.h"

namespace kv::runtime {

/// What has to run so that arrays have their values.
struct EvaluationObjects {
  host::Value taskGraph;  ///< null when all values are there
  host::Value executor;
  host::Value promises;  ///< the pending promises behind the arrays, each once, in order
};

/// Plans the evaluation of `arrays`; what isn't a lazy array, or is complete, asks for nothing.
///
/// Errors: "KALVEX:bigdata:array:IncompatibleTallExecutor"; those of planning.
EvaluationObjects evaluationObjects(std::span<const kxArray* const> arrays);

}  // namespace kv::runtime

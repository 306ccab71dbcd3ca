#pragma once

#include <cstddef>
#include <vector>

#include "driver/PlanHandles.h"
#include "driver/wholeValues.h"
#include "engine/Stage.h"
#include "plan/PassGraph.h"

namespace kv::runtime {

/// A stage, and the values that it reads.
struct AssembledStage {
  host::Value composite;            ///< the composite processor; holds the stage
  std::vector<host::Value> values;  ///< of the stage's inputs, as users' functions get them

  const Stage& stage() const;
  /// The processor factory of a step.
  host::Value factoryOf(std::size_t step) const;
  const OpSpec& specOf(std::size_t step) const;
};

/// Makes the stage of a pass over builders of composite processors: one for each step and each
/// input.
///
/// Requires: the whole values that the pass takes are in `values`.
/// Errors: "KALVEX:array:NotAColumn" for a step of ours that gets anything else.
AssembledStage assembleStage(const PassGraph& pass, const Plan& plan, const PlanHandles& handles,
                             const WholeValues& values);

}  // namespace kv::runtime

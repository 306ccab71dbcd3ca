#pragma once

#include <cstddef>
#include <vector>

#include "driver/wholeValues.h"
#include "engine/Stage.h"
#include "plan/Plan.h"
#include "plan/Schedule.h"

namespace kv::runtime {

/// A stage, and the values that it reads.
struct AssembledStage {
  host::Value composite;                    ///< the composite processor; holds the stage
  std::vector<host::Value> values;          ///< of the stage's inputs, as users' functions get them
  std::vector<std::size_t> factoryNumbers;  ///< by step: which factory of the composite is its own

  const Stage& stage() const;
  /// The processor factory of a step; of a flow step between two steps that of the later one.
  host::Value factoryOf(std::size_t step) const;
  const OpSpec& specOf(std::size_t step) const;
};

/// Assembles the stage that gives `sinks`, in order, over builders of composite processors. A
/// choice is the branch that it takes.
///
/// Requires: `schedule` lets the sinks run together: their rows flow from one source, and the whole
///           values that they read are there.
AssembledStage assembleStage(const Plan& plan, const Schedule& schedule,
                             const std::vector<PassSink>& sinks, const WholeValues& values);

}  // namespace kv::runtime

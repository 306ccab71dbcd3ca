#pragma once

#include <vector>

#include "execution/Plan.h"
#include "execution/Stage.h"
#include "execution/wholeValues.h"

namespace kv::runtime {

/// A result of a pass: an aggregate, or an output whose rows are kept.
struct PassSink {
  int task = 0;
  std::size_t output = 0;
  bool isAggregate = false;
};

/// A stage, and the values that it reads.
struct AssembledStage {
  host::Value composite;  ///< the composite processor; holds the stage
  std::vector<StageInput> inputs;

  const Stage& stage() const;
  /// The processor factory of a step.
  host::Value factoryOf(std::size_t step) const;
};

/// Assembles the stage that gives `sinks`, in order, over builders of composite processors.
///
/// Requires: the sinks' rows flow from one source, and the whole values that they read are there.
AssembledStage assembleStage(const Plan& plan, const std::vector<PassSink>& sinks,
                             const WholeValues& values);

}  // namespace kv::runtime

#pragma once

#include <cstddef>
#include <memory>
#include <vector>

#include "driver/PlanHandles.h"
#include "driver/materialisedValues.h"
#include "engine/Stage.h"
#include "plan/PassGraph.h"

namespace kv::runtime {

/// A stage, and the session's side of it.
///
/// Lives: the handles outlive it.
struct AssembledStage {
  Stage stage;
  std::vector<host::Value> values;  ///< of its inputs, as users' functions get them
  std::vector<std::shared_ptr<const OpSpec>> specs{};  ///< of its steps
  std::vector<const kxArray*> factories{};             ///< of its steps: have functions and line

  const OpSpec& specOf(std::size_t step) const { return *specs[step]; }
  const kxArray* factoryOf(std::size_t step) const { return factories[step]; }
};

/// The stage of a pass, with the values that its steps take.
///
/// Requires: the materialised values that the pass takes are in `values`, see inputValue().
/// Errors: "KALVEX:array:NotAColumn" for a step of ours that gets anything else.
AssembledStage assembleStage(const PassGraph& pass, const Plan& plan, const PlanHandles& handles,
                             const MaterialisedValues& values);

}  // namespace kv::runtime

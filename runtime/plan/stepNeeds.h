#pragma once

#include <vector>

#include "engine/Stage.h"
#include "operator/ColumnNeeds.h"

namespace kv::runtime {

/// What later steps need of the result of each step.
///
/// Requires: each step comes after its inputs.
std::vector<ColumnNeeds> needsOfSteps(const std::vector<Step>& steps);

}  // namespace kv::runtime

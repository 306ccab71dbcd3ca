#pragma once

#include <compare>
#include <cstddef>
#include <string>
#include <vector>

#include "operator/operators.h"

namespace kv::runtime {

/// Where an input of a step comes from: an output of an earlier step, or an input of the stage.
struct StepLink {
  bool isStageInput = false;
  std::size_t index = 0;   ///< of the step, or of the stage's input, from 0
  std::size_t output = 0;  ///< of the step

  auto operator<=>(const StepLink&) const = default;
};

/// One step of a stage.
struct Step {
  OperatorPtr op;
  std::vector<StepLink> inputs{};
  std::size_t numOutputs = 1;
  std::string label{};     ///< what it does, as plans show it
  std::string origin{};    ///< the user's line, "file:line"; empty if none is known
  std::string rowSpace{};  ///< of the rows that the step makes; empty if it makes none

  /// Names of the user's functions that it calls, the one that reduces last; an empty one for a
  /// function without a name. A process that has no handle of them finds them by these.
  std::vector<std::string> functions{};

  /// What the step is called in messages: its label and, if it is known, the user's line.
  std::string describe() const;
};

}  // namespace kv::runtime

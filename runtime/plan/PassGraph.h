#pragma once

#include <cstddef>
#include <vector>

#include "engine/Stage.h"
#include "plan/Plan.h"

namespace kv::runtime {

/// A value that a step of a pass takes besides rows.
struct PassInput {
  PlanInput from;  ///< a task whose values are whole, or a value
  int task = 0;    ///< that takes it
};

/// Where the results of a sink are.
struct SinkPlace {
  std::size_t output = 0;      ///< number of the pass's output
  std::size_t firstValue = 0;  ///< of a step by key, which may have the values of several sinks
};

/// What one pass runs, as plain values: a node of the graph of stages. Its steps are those of the
/// stage that the engine runs, number by number, and `explain` prints them.
struct PassGraph {
  std::vector<int> tasks{};            ///< whose rows flow, in dependency order
  std::vector<Step> steps{};           ///< each after its inputs
  std::vector<int> taskOf{};           ///< of each step
  std::vector<PassInput> inputs{};     ///< to which the steps' links to stage inputs lead
  std::vector<std::size_t> outputs{};  ///< the steps whose results it gives, each once
  std::vector<SinkPlace> sinks{};
};

}  // namespace kv::runtime

// Steps by the same keys become one, which is put at the end: no step takes what another ends. Its
// values are those of each step, in order, so the results of a step are a run of them. The steps
// that it replaces have no reader then, and lowering drops them.

#include <algorithm>
#include <map>
#include <tuple>
#include <utility>
#include <vector>

#include "plan/rules/rules.h"

namespace kv::runtime {

namespace {

/// Null for a step that isn't by key, or calls users' functions.
const std::vector<GroupedValue>* groupedValues(const Step& step) {
  const auto* sink = step.op->as<SinkOperator>();
  return sink != nullptr ? sink->groupedValues() : nullptr;
}

/// Several steps as one, in the place of the last.
class Merged {
 public:
  explicit Merged(const Step& first)
      : step_{nullptr, {first.inputs.front()}, 1, first.label, first.origin} {}

  /// Result: where the values of the step begin.
  std::size_t add(const Step& step) {
    const std::size_t first = values_.size();
    for (GroupedValue value : *groupedValues(step)) {
      if (!value.function->countsRows) {
        value.input = inputOf(step.inputs.at(value.input + 1));
      }
      values_.push_back(value);
    }
    return first;
  }

  Step take() {
    step_.numOutputs = values_.size() + 1;
    step_.op = makeGroups(std::move(values_));
    return std::move(step_);
  }

 private:
  /// The number of an array among the inputs, which is added if it isn't there.
  std::size_t inputOf(const StepLink& link) {
    const auto known = std::find(step_.inputs.begin() + 1, step_.inputs.end(), link);
    if (known == step_.inputs.end()) {
      step_.inputs.push_back(link);
      return step_.inputs.size() - 2;
    }
    return static_cast<std::size_t>(known - step_.inputs.begin()) - 1;
  }

  Step step_;
  std::vector<GroupedValue> values_;
};

}  // namespace

void shareGroups(PassGraph& graph) {
  std::map<StepLink, std::vector<std::size_t>> byKeys;
  for (std::size_t i = 0; i < graph.steps.size(); ++i) {
    if (groupedValues(graph.steps[i]) != nullptr) {
      byKeys[graph.steps[i].inputs.front()].push_back(i);
    }
  }
  std::map<std::size_t, std::pair<std::size_t, std::size_t>> mergedOf;  // step, first value
  for (const auto& [keys, steps] : byKeys) {
    if (steps.size() < 2) {
      continue;
    }
    Merged merged(graph.steps[steps.front()]);
    for (const std::size_t step : steps) {
      mergedOf[step] = {graph.steps.size(), merged.add(graph.steps[step])};
    }
    graph.steps.push_back(merged.take());
    graph.taskOf.push_back(graph.taskOf[steps.front()]);
  }
  std::vector<std::size_t> outputs;
  for (SinkPlace& sink : graph.sinks) {
    std::size_t step = graph.outputs[sink.output];
    if (const auto found = mergedOf.find(step); found != mergedOf.end()) {
      std::tie(step, sink.firstValue) = found->second;
    }
    const auto known = std::ranges::find(outputs, step);
    sink.output = static_cast<std::size_t>(known - outputs.begin());
    if (known == outputs.end()) {
      outputs.push_back(step);
    }
  }
  graph.outputs = std::move(outputs);
}

}  // namespace kv::runtime

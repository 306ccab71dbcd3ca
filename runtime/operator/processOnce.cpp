#include "operator/processOnce.h"

#include <algorithm>
#include <cassert>
#include <memory>

namespace kv::runtime {

std::vector<Chunk> processOnce(const Operator& op, std::string_view label,
                               const std::vector<Chunk>& inputs, UserFunctions* functions) {
  assert(!inputs.empty());
  assert(functions != nullptr || !op.facts().callsUser);
  const auto rows = std::ranges::max_element(inputs, {}, &Chunk::rows)->rows();
  std::vector<StageInput> values;
  values.reserve(inputs.size());
  std::vector<StepInput> wholes;
  for (const Chunk& input : inputs) {
    const bool isValue = input.rows() == 1 && rows > 1;
    wholes.push_back({.rows = &input, .origin = "a value in memory"});
    if (isValue) {
      values.push_back({input});
      wholes.back() = {.value = &values.back(), .origin = "a value in memory"};
    }
  }
  UserFunctions none;
  UserFunctions& called = functions != nullptr ? *functions : none;
  OutputTypes types;
  const StepScope scope{0, label, inputs.size(), called, types};
  const StepInputs given(label, op.facts().spreads, wholes);
  if (const auto* step = op.as<StepOperator>()) {
    return step->start(scope)->process(given);
  }
  const auto* sink = op.as<SinkOperator>();
  assert(sink != nullptr);
  const std::unique_ptr<SinkMerge> merge = sink->startMerge({0, label, called});
  const std::unique_ptr<SinkRun> run = sink->start(scope);
  run->process(given);
  merge->add(run->finish());
  return merge->finish().arrays;
}

}  // namespace kv::runtime

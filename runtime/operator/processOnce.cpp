#include "operator/processOnce.h"

#include <algorithm>
#include <cassert>
#include <memory>
#include <stdexcept>

namespace kv::runtime {

namespace {

/// For operators that call none.
class NoFunctions final : public UserFunctions {
 public:
  std::vector<Chunk> call(std::size_t /*step*/, const Chunk& /*rows*/,
                          std::span<const FunctionInput> /*inputs*/,
                          OutputTypes& /*types*/) override {
    refuse();
  }
  PartitionResults callPartition(std::size_t /*step*/, const Chunk& /*rows*/,
                                 std::span<const FunctionInput> /*inputs*/,
                                 const PartitionPlace& /*place*/, bool /*returnsUnused*/,
                                 OutputTypes& /*types*/) override {
    refuse();
  }
  ReducedValues reduce(std::size_t /*step*/, std::span<const Chunk> /*partials*/) override {
    refuse();
  }
  std::vector<Chunk> partialsOf(std::size_t /*step*/, const ReducedValues& /*reduced*/) override {
    refuse();
  }

 private:
  [[noreturn]] static void refuse() {
    throw std::logic_error("a step that calls no function has called one");
  }
};

}  // namespace

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
  NoFunctions none;
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

#include "operator/Operator.h"

#include <algorithm>
#include <stdexcept>

#include "kv/errors/StepError.h"

namespace kv::runtime {

namespace {

class StatelessRun final : public StepRun {
 public:
  explicit StatelessRun(const StatelessOperator& op) : op_(op) {}

  std::vector<Chunk> process(const StepInputs& inputs) override { return op_.process(inputs); }

 private:
  const StatelessOperator& op_;
};

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

void requireLogical(std::string_view label, const Chunk& result) {
  if (result.type() != ElementType::Logical) {
    errors::raiseStep("KALVEX:array:NotLogical",
                      {std::string(label), std::string(elementTypeName(result.type()))});
  }
}

std::vector<Chunk> processOnce(const Operator& op, std::string_view label,
                               const std::vector<Chunk>& inputs, UserFunctions* functions) {
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
  const std::unique_ptr<StepRun> run = op.start({0, label, inputs.size(), called, types});
  std::vector<Chunk> outputs = run->process({label, op.spreads(), wholes, inputs.front()});
  if (op.rowEffect() != RowEffect::End) {
    return outputs;
  }
  const std::unique_ptr<SinkMerge> merge = op.startMerge({0, label, called});
  merge->add(run->finish());
  return merge->finish().arrays;
}

ColumnNeeds Operator::needsOf(std::size_t /*input*/, const ColumnNeeds& /*asked*/) const {
  return {true, {}};
}

std::unique_ptr<StepRun> Operator::start(const StepScope& /*scope*/) const {
  throw std::logic_error("a flow step was started as one that keeps the cut");
}

std::unique_ptr<FlowRun> Operator::startFlow(const StepScope& /*scope*/,
                                             std::span<const FlowInput> /*inputs*/) const {
  throw std::logic_error("a step that keeps the cut was started as a flow step");
}

std::unique_ptr<SinkMerge> Operator::startMerge(const MergeScope& /*scope*/) const {
  throw std::logic_error("a step that gives rows has nothing to merge");
}

void Operator::write(ByteWriter& /*bytes*/) const {}

std::unique_ptr<StepRun> StatelessOperator::start(const StepScope& /*scope*/) const {
  return std::make_unique<StatelessRun>(*this);
}

}  // namespace kv::runtime

#include "operator/Operator.h"

#include <cassert>

namespace kv::runtime {

namespace {

class StatelessRun final : public StepRun {
 public:
  explicit StatelessRun(const StatelessOperator& op) : op_(op) {}

  std::vector<Chunk> process(const StepInputs& inputs) override { return op_.process(inputs); }

 private:
  const StatelessOperator& op_;
};

OperatorFacts withRows(OperatorFacts facts, RowEffect rows) {
  facts.rows = rows;
  return facts;
}

}  // namespace

ColumnNeeds Operator::needsOf(std::size_t /*input*/, const ColumnNeeds& /*asked*/) const {
  return {true, {}};
}

void Operator::write(ByteWriter& /*bytes*/) const {}

ReadOperator::ReadOperator(OperatorFacts facts)
    : Operator(kKind, withRows(facts, RowEffect::Create)) {}

StepOperator::StepOperator(const OperatorFacts& facts) : Operator(kKind, facts) {
  assert(facts.rows == RowEffect::Keep || facts.rows == RowEffect::Filter);
  assert(!facts.takesValues);
}

FlowOperator::FlowOperator(const OperatorFacts& facts) : Operator(kKind, facts) {
  assert(facts.rows == RowEffect::Keep || facts.rows == RowEffect::Renew);
}

SinkOperator::SinkOperator(OperatorFacts facts) : Operator(kKind, withRows(facts, RowEffect::End)) {
  assert(!facts.takesValues);
}

std::unique_ptr<StepRun> StatelessOperator::start(const StepScope& /*scope*/) const {
  return std::make_unique<StatelessRun>(*this);
}

}  // namespace kv::runtime

#include "operator/operators.h"

namespace kv::runtime {

namespace {

class Pass final : public StatelessOperator {
 public:
  Pass() : StatelessOperator({.name = "pass", .passesInputs = true}) {}

  ColumnNeeds needsOf(std::size_t /*input*/, const ColumnNeeds& asked) const override {
    return asked;
  }

  std::vector<Chunk> process(const StepInputs& inputs) const override { return {inputs.chunk(0)}; }
};

}  // namespace

OperatorPtr makePass() { return std::make_shared<Pass>(); }

}  // namespace kv::runtime

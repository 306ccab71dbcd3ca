#include "operator/operations.h"
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

namespace {

void describeCache(const RecordedOperation& /*operation*/, OpSpec& spec) {
  spec.op = makePass();
  spec.wholeRun = WholeRun::PassOn;
  spec.label = "keep for reuse";
}

}  // namespace

const OperatorRow& passRow() {
  static const OperatorRow row{"pass",
                               readPlain<makePass>,
                               {{.name = "kalvex.bigdata.internal.lazyeval.CacheOperation",
                                 .inputs = {},
                                 .arity = kOneToOne,
                                 .describe = describeCache,
                                 .hasCacheKey = true}}};
  return row;
}

}  // namespace kv::runtime

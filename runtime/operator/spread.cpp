#include <utility>

#include "column/concatenate.h"
#include "operator/operations.h"
#include "operator/operators.h"

namespace kv::runtime {

namespace {

class SpreadValue final : public StatelessOperator {
 public:
  SpreadValue() : StatelessOperator({.name = "spread"}) {}

  /// Of the rows only their number matters.
  ColumnNeeds needsOf(std::size_t /*input*/, const ColumnNeeds& /*asked*/) const override {
    return {};
  }

  std::vector<Chunk> process(const StepInputs& inputs) const override {
    inputs.checkValues();
    const Chunk& rows = inputs.chunk(1);
    const Chunk& value = inputs.value(0).rows;
    Chunk repeated{rows.partition, rows.ordinals, nullptr, {}, value.trailing};
    for (const Column& column : value.columns) {
      repeated.columns.push_back(repeat(column, rows.rows()));
    }
    return {std::move(repeated)};
  }
};

}  // namespace

OperatorPtr makeSpread() { return std::make_shared<SpreadValue>(); }

namespace {

void describeChoice(const RecordedOperation& /*operation*/, OpSpec& spec) {
  spec.isChoice = true;
  spec.op = makeSpread();
  spec.wholeRun = WholeRun::PassOn;
  spec.label = "choose by a condition";
}

}  // namespace

const OperatorRow& spreadRow() {
  static const OperatorRow row{"spread",
                               readPlain<makeSpread>,
                               {{.name = "kalvex.bigdata.internal.lazyeval.TernaryOperation",
                                 .inputs = {},
                                 .arity = kChoice,
                                 .describe = describeChoice,
                                 .supportsPreview = true}}};
  return row;
}

}  // namespace kv::runtime

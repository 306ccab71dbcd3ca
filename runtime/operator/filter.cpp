#include "column/concatenate.h"
#include "kv/runtime/selectRows.h"
#include "operator/operations.h"
#include "operator/operators.h"

namespace kv::runtime {

namespace {

class Filter final : public StatelessOperator {
 public:
  Filter() : StatelessOperator({.name = "filter", .rows = RowEffect::Filter}) {}

  ColumnNeeds needsOf(std::size_t input, const ColumnNeeds& asked) const override {
    return input == 0 ? ColumnNeeds{true, {}} : asked;
  }

  std::vector<Chunk> process(const StepInputs& inputs) const override {
    const Column& keep = inputs.column(0);
    const bool isKnown = keep.type() != ElementType::Unknown;
    std::vector<Chunk> kept;
    for (std::size_t input = 1; input < inputs.size(); ++input) {
      const Chunk& chunk = inputs.chunk(input);
      if (inputs.isValue(0)) {
        kept.push_back(isTrue(keep) ? chunk : slice(chunk, 0, 0));
        continue;
      }
      inputs.requireSameRows(0, input);
      kept.push_back(isKnown ? selectRows(chunk, keep) : chunk);
    }
    return kept;
  }

 private:
  /// Whether a condition that is one value keeps rows.
  static bool isTrue(const Column& keep) {
    return selectRows({.ordinals = RowOrdinals(0, 1), .columns = {keep}}, keep).rows() == 1;
  }
};

}  // namespace

OperatorPtr makeFilter() { return std::make_shared<Filter>(); }

namespace {

void describeFilter(const RecordedOperation& /*operation*/, OpSpec& spec) {
  spec.op = makeFilter();
  spec.wholeRun = WholeRun::RunOperator;
  spec.label = "filter";
}

}  // namespace

const OperatorRow& filterRow() {
  static const OperatorRow row{
      "filter",
      readPlain<makeFilter>,
      {{.name = "kalvex.bigdata.internal.lazyeval.FilterOperation",
        .inputs = {"NumKept"},
        .arity = kSelection,
        .describe = describeFilter,
        .supportsPreview = true},
       {.name = "kalvex.bigdata.internal.lazyeval.LogicalRowSubsrefOperation",
        .inputs = {"NumKept"},
        .arity = kSelection,
        .describe = describeFilter}}};
  return row;
}

}  // namespace kv::runtime

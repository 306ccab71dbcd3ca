#include <utility>

#include "operator/operations.h"
#include "operator/operators.h"

namespace kv::runtime {

namespace {

class Elementwise final : public StatelessOperator {
 public:
  Elementwise(const ElementFunction& function, bool givesLogical, bool spreads)
      : StatelessOperator(
            {.name = "elementwise", .spreads = spreads, .elementFunction = &function}),
        function_(function),
        givesLogical_(givesLogical) {}

  std::vector<Chunk> process(const StepInputs& inputs) const override {
    const Chunk& rows = inputs.sharedRows();
    if (inputs.hasUnknown()) {
      return {{rows.partition, rows.ordinals, nullptr, {emptyColumn(ElementType::Unknown)}}};
    }
    Chunk result = evaluateArrays(function_, inputs.operands(), rows.rows());
    if (givesLogical_) {
      requireLogical(inputs.label(), result);
    }
    result.partition = rows.partition;
    result.ordinals = rows.ordinals;
    return {std::move(result)};
  }

  void write(ByteWriter& bytes) const override {
    bytes.text(function_.name);
    bytes.flag(givesLogical_);
    bytes.flag(facts().spreads);
  }

 private:
  const ElementFunction& function_;  ///< of the table of element functions
  bool givesLogical_;
};

}  // namespace

OperatorPtr makeElementwise(const ElementFunction& function, bool givesLogical, bool spreads) {
  return std::make_shared<Elementwise>(function, givesLogical, spreads);
}

namespace {

OperatorPtr readElementwise(ByteReader& bytes) {
  const ElementFunction* function = findElementFunction(bytes.text());
  if (function == nullptr) {
    bytes.refuse();
  }
  const bool givesLogical = bytes.flag();
  return makeElementwise(*function, givesLogical, bytes.flag());
}

/// A function of matching rows. One that is built in has one output; the call of the function
/// refuses more.
void describeRows(const RecordedOperation& operation, OpSpec& spec, bool givesLogical,
                  bool spreads) {
  const ElementFunction* function = noteFunction(operation, spec).builtIn.element;
  spec.callsUser = function == nullptr || spec.numOutputs != 1;
  spec.op = spec.callsUser ? makeCallable({.givesLogical = givesLogical, .spreads = spreads})
                           : makeElementwise(*function, givesLogical, spreads);
  spec.wholeRun = givesLogical ? WholeRun::CallOnRowsForLogical : WholeRun::CallOnRows;
}

void describeLogicalElementwise(const RecordedOperation& operation, OpSpec& spec) {
  describeRows(operation, spec, true, true);
}

void describeElementwise(const RecordedOperation& operation, OpSpec& spec) {
  describeRows(operation, spec, false, true);
}

void describeSlicewise(const RecordedOperation& operation, OpSpec& spec) {
  describeRows(operation, spec, false, operation.flag("AllowTallDimExpansion"));
}

}  // namespace

const OperatorRow& elementwiseRow() {
  static const OperatorRow row{
      "elementwise",
      readElementwise,
      {{.name = "kalvex.bigdata.internal.lazyeval.LogicalElementwiseOperation",
        .inputs = {"Options", "FunctionHandle", "NumInputs", "NumOutputs"},
        .describe = describeLogicalElementwise,
        .supportsPreview = true},
       {.name = "kalvex.bigdata.internal.lazyeval.SmallTallComparisonOperation",
        .inputs = {"Options", "FunctionHandle", "Operand", "Flag", "NumInputs", "NumOutputs"},
        .describe = describeElementwise},
       {.name = "kalvex.bigdata.internal.lazyeval.ElementwiseOperation",
        .inputs = {"FunctionHandle"},
        .describe = describeElementwise,
        .isNative = true},
       {.name = "kalvex.bigdata.internal.lazyeval.SlicewiseOperation",
        .inputs = {"FunctionHandle"},
        .describe = describeSlicewise,
        .isNative = true}}};
  return row;
}

}  // namespace kv::runtime

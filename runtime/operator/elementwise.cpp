#include <utility>

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

OperatorPtr readElementwise(ByteReader& bytes) {
  const ElementFunction* function = findElementFunction(bytes.text());
  if (function == nullptr) {
    bytes.refuse();
  }
  const bool givesLogical = bytes.flag();
  return makeElementwise(*function, givesLogical, bytes.flag());
}

}  // namespace kv::runtime

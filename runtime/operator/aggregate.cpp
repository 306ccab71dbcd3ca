#include <optional>
#include <utility>

#include "aggregate/PartialTree.h"
#include "operator/operators.h"

namespace kv::runtime {

namespace {

class AggregateRun final : public StepRun {
 public:
  AggregateRun(AggregateKind kind, MissingRule missing) : state_(kind, missing) {}

  std::vector<Chunk> process(const StepInputs& inputs) override {
    const Column& column = inputs.column(0);
    if (column.type() != ElementType::Unknown) {
      state_.update(column, inputs.chunk(0).ordinals);
    }
    return {};
  }

  SinkResult finish() override { return {.partial = state_.finish().toBytes()}; }

 private:
  AggregateState state_;
};

class AnswerMerge final : public SinkMerge {
 public:
  explicit AnswerMerge(AggregateKind kind) : answer_(kind) {}

  void add(SinkResult result) override { answer_.add(AggregatePartial::fromBytes(result.partial)); }

  MergedSink finish() override { return {.columns = {answer_.finish()}}; }

 private:
  PartialTree answer_;
};

class Aggregate final : public Operator {
 public:
  Aggregate(const AggregateFunction& function, MissingRule missing)
      : function_(function), missing_(missing) {}

  std::string_view kind() const override { return "aggregate"; }
  RowEffect rowEffect() const override { return RowEffect::End; }
  std::string planNote() const override { return "reduces all rows"; }

  std::unique_ptr<StepRun> start(const StepScope& /*scope*/) const override {
    return std::make_unique<AggregateRun>(function_.kind, missing_);
  }

  std::unique_ptr<SinkMerge> startMerge(const MergeScope& /*scope*/) const override {
    return std::make_unique<AnswerMerge>(function_.kind);
  }

  void write(ByteWriter& bytes) const override {
    bytes.text(function_.name);
    bytes.flag(missing_ == MissingRule::Propagate);
  }

 private:
  const AggregateFunction& function_;  ///< of the table of aggregates
  MissingRule missing_;
};

}  // namespace

OperatorPtr makeAggregate(const AggregateFunction& function, MissingRule missing) {
  return std::make_shared<Aggregate>(function, missing);
}

OperatorPtr readAggregate(ByteReader& bytes) {
  const AggregateFunction* function = findAggregateFunction(bytes.text());
  if (function == nullptr) {
    bytes.refuse();
  }
  return makeAggregate(*function, bytes.flag() ? MissingRule::Propagate : MissingRule::Skip);
}

}  // namespace kv::runtime

// A built-in aggregate: a unit reduces the rows of its partition to one partial result per column,
// which leaves it as bytes, and the merge combines these in a tree that the numbers of partitions
// define. A partition that had no rows doesn't know how many columns there are; it contributes one
// partial result, which is taken for each of them.

#include <cassert>
#include <optional>
#include <utility>

#include "aggregate/PartialTree.h"
#include "aggregate/answers.h"
#include "column/arrays.h"
#include "operator/operations.h"
#include "operator/operators.h"

namespace kv::runtime {

namespace {

class AggregateRun final : public SinkRun {
 public:
  AggregateRun(AggregateKind kind, MissingRule missing) : kind_(kind), missing_(missing) {}

  void process(const StepInputs& inputs) override {
    const Chunk& rows = inputs.array(0);
    if (rows.type() == ElementType::Unknown) {
      return;
    }
    if (states_.empty()) {
      addStates(rows.columns.size());
      trailing_ = rows.trailing;
    }
    assert(rows.trailing == trailing_);
    for (std::size_t i = 0; i < states_.size(); ++i) {
      states_[i].update(rows.columns[i], rows.ordinals);
    }
  }

  SinkResult finish() override {
    if (states_.empty()) {
      addStates(1);
    }
    ByteWriter bytes;
    writeDimensions(trailing_, bytes);
    for (AggregateState& state : states_) {
      bytes.text(state.finish().toBytes());
    }
    return {.partial = bytes.take()};
  }

 private:
  void addStates(std::size_t count) {
    for (std::size_t i = 0; i < count; ++i) {
      states_.emplace_back(kind_, missing_);
    }
  }

  AggregateKind kind_;
  MissingRule missing_;
  Dimensions trailing_;
  std::vector<AggregateState> states_;  ///< of the columns; none before the first rows
};

class AnswerMerge final : public SinkMerge {
 public:
  AnswerMerge(AggregateKind kind, const AggregateForm& form)
      : form_(form), columns_{PartialTree(kind)} {}

  /// A partition without rows of a known type has one partial, which goes with any dimensions.
  void add(SinkResult result) override {
    ByteReader bytes(result.partial, "what an aggregate has gathered");
    const Dimensions trailing = readDimensions(bytes);
    std::vector<AggregatePartial> partials;
    for (std::size_t left = columnsIn(trailing); left > 0; --left) {
      partials.push_back(AggregatePartial::fromBytes(bytes.text()));
    }
    bytes.finish();
    if (partials.front().type) {
      setDimensions(trailing, bytes);
    }
    partials.resize(columns_.size(), partials.front());
    for (std::size_t i = 0; i < columns_.size(); ++i) {
      columns_[i].add(std::move(partials[i]));
    }
  }

  MergedSink finish() override {
    std::vector<AggregatePartial> totals;
    for (PartialTree& column : columns_) {
      totals.push_back(column.finish());
    }
    return {.arrays = {answersOf(std::move(totals), form_, trailing_.value_or(Dimensions{}))}};
  }

 private:
  void setDimensions(const Dimensions& trailing, const ByteReader& bytes) {
    if (trailing_ && *trailing_ != trailing) {
      bytes.refuse();
    }
    if (!trailing_) {
      trailing_ = trailing;
      columns_.resize(columnsIn(trailing), columns_.front());
    }
  }

  AggregateForm form_;
  std::optional<Dimensions> trailing_;  ///< of the first partition with rows of a known type
  std::vector<PartialTree> columns_;
};

class Aggregate final : public SinkOperator {
 public:
  Aggregate(const AggregateFunction& function, const AggregateForm& form)
      : SinkOperator({.name = "aggregate"}), function_(function), form_(form) {}

  std::string planNote() const override { return "reduces all rows"; }

  std::unique_ptr<SinkRun> start(const StepScope& /*scope*/) const override {
    return std::make_unique<AggregateRun>(function_.kind, form_.missing);
  }

  std::unique_ptr<SinkMerge> startMerge(const MergeScope& /*scope*/) const override {
    return std::make_unique<AnswerMerge>(function_.kind, form_);
  }

  void write(ByteWriter& bytes) const override {
    bytes.text(function_.name);
    bytes.flag(form_.missing == MissingRule::Propagate);
    bytes.flag(form_.isWhole);
    bytes.flag(form_.needsRows);
  }

 private:
  const AggregateFunction& function_;  ///< of the table of aggregates
  AggregateForm form_;
};

}  // namespace

OperatorPtr makeAggregate(const AggregateFunction& function, const AggregateForm& form) {
  return std::make_shared<Aggregate>(function, form);
}

namespace {

OperatorPtr readAggregate(ByteReader& bytes) {
  const AggregateFunction* function = findAggregateFunction(bytes.text());
  if (function == nullptr) {
    bytes.refuse();
  }
  AggregateForm form{bytes.flag() ? MissingRule::Propagate : MissingRule::Skip};
  form.isWhole = bytes.flag();
  form.needsRows = bytes.flag();
  return makeAggregate(*function, form);
}

/// A reduction is built in if both of its functions are the same one of the runtime's, of one input
/// and one output. Any other calls both functions as they are.
void describeAggregate(const RecordedOperation& operation, OpSpec& spec) {
  const BuiltInFunction function = noteFunction(operation, spec).builtIn;
  const BuiltInFunction reduction = noteReduction(operation, spec).builtIn;
  spec.callsUser = function.aggregate == nullptr || function != reduction || spec.numInputs != 1 ||
                   spec.numOutputs != 1;
  spec.op = spec.callsUser ? makeReduction() : makeAggregate(*function.aggregate, function.form);
  spec.wholeRun = spec.callsUser ? WholeRun::CallAndReduce : WholeRun::CallOnRows;
}

}  // namespace

const OperatorRow& aggregateRow() {
  static const OperatorRow row{
      "aggregate",
      readAggregate,
      {{.name = "kalvex.bigdata.internal.lazyeval.AggregateOperation",
        .inputs = {"Options", "FunctionHandle", "ReduceHandle", "NumInputs", "NumOutputs"},
        .arity = kRowFunction,
        .describe = describeAggregate}}};
  return row;
}

}  // namespace kv::runtime

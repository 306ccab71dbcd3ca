#include <cassert>
#include <optional>
#include <utility>

#include "aggregate/PartialTree.h"
#include "column/arrays.h"
#include "operator/operators.h"

namespace kv::runtime {

namespace {

class AggregateRun final : public StepRun {
 public:
  AggregateRun(AggregateKind kind, MissingRule missing) : kind_(kind), missing_(missing) {}

  std::vector<Chunk> process(const StepInputs& inputs) override {
    const Chunk& rows = inputs.array(0);
    if (rows.type() == ElementType::Unknown) {
      return {};
    }
    if (states_.empty()) {
      addStates(rows.columns.size());
      trailing_ = rows.trailing;
    }
    assert(rows.trailing == trailing_);
    for (std::size_t i = 0; i < states_.size(); ++i) {
      states_[i].update(rows.columns[i], rows.ordinals);
    }
    return {};
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
  explicit AnswerMerge(AggregateKind kind) : answers_{PartialTree(kind)} {}

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
    partials.resize(answers_.size(), partials.front());
    for (std::size_t i = 0; i < answers_.size(); ++i) {
      answers_[i].add(std::move(partials[i]));
    }
  }

  MergedSink finish() override {
    Chunk answer{.ordinals = RowOrdinals(0, 1), .trailing = trailing_.value_or(Dimensions{})};
    for (PartialTree& column : answers_) {
      answer.columns.push_back(column.finish());
    }
    return {.arrays = {std::move(answer)}};
  }

 private:
  void setDimensions(const Dimensions& trailing, const ByteReader& bytes) {
    if (trailing_ && *trailing_ != trailing) {
      bytes.refuse();
    }
    if (!trailing_) {
      trailing_ = trailing;
      answers_.resize(columnsIn(trailing), answers_.front());
    }
  }

  std::optional<Dimensions> trailing_;  ///< of the first partition with rows of a known type
  std::vector<PartialTree> answers_;    ///< of the columns
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

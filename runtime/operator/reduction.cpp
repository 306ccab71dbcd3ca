// A user's reduction has two functions. The first makes a partial result of each frame of rows, as
// a frame step before it cuts them; the second makes one partial result of up to 64 of either
// function's, stacked output by output. It runs last in each partition and over all partitions, so
// that it must accept what it returned.

#include <optional>
#include <utility>

#include "aggregate/ReduceTree.h"
#include "operator/operations.h"
#include "operator/operators.h"
#include "operator/partials.h"

namespace kv::runtime {

namespace {

class ReductionRun final : public SinkRun {
 public:
  explicit ReductionRun(const StepScope& scope)
      : scope_(scope), tree_(Reducer({scope.step, scope.label, scope.functions}), false) {}

  void process(const StepInputs& inputs) override {
    const Chunk& frame = inputs.sharedRows();
    if (frame.rows() > 0 || mustCallOnNoRows()) {
      scope_.types.noteCall();
      Partial partial{.arrays = scope_.functions.call(scope_.step, frame, inputs.functionInputs(),
                                                      scope_.types)};
      isReducing_ = true;
      tree_.push(std::move(partial));
      isReducing_ = false;
    }
  }

  SinkResult finish() override {
    std::optional<Partial> root = tree_.finish();
    return {.reduced = root ? std::move(root->reduced) : nullptr};
  }

  /// The second function isn't given rows.
  const GivenRows* rowsAtHand() const override { return isReducing_ ? &kNoRows : nullptr; }

 private:
  static constexpr GivenRows kNoRows{};

  bool mustCallOnNoRows() const {
    return scope_.typesForNoRows != nullptr && !scope_.typesForNoRows->contains(scope_.step);
  }

  StepScope scope_;
  ReduceTree<Partial> tree_;
  bool isReducing_ = false;
};

class ReductionMerge final : public SinkMerge {
 public:
  explicit ReductionMerge(const MergeScope& scope) : tree_(Reducer(scope), true) {}

  void add(SinkResult result) override {
    if (result.reduced != nullptr) {
      tree_.push({.reduced = std::move(result.reduced)});
    }
  }

  MergedSink finish() override {
    std::optional<Partial> root = tree_.finish();
    return {.reduced = root ? std::move(root->reduced) : nullptr};
  }

 private:
  ReduceTree<Partial> tree_;
};

class Reduction final : public SinkOperator {
 public:
  Reduction() : SinkOperator({.name = "reduction", .callsUser = true, .seesFrames = true}) {}

  std::string planNote() const override { return "reduces all rows"; }

  std::unique_ptr<SinkRun> start(const StepScope& scope) const override {
    return std::make_unique<ReductionRun>(scope);
  }

  std::unique_ptr<SinkMerge> startMerge(const MergeScope& scope) const override {
    return std::make_unique<ReductionMerge>(scope);
  }
};

}  // namespace

OperatorPtr makeReduction() { return std::make_shared<Reduction>(); }

const OperatorRow& reductionRow() {
  static const OperatorRow row{"reduction", readPlain<makeReduction>};
  return row;
}

}  // namespace kv::runtime

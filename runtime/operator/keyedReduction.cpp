// Users' functions by key. Of each frame, the first function gets the rows of one key at a time, in
// order and without the keys, and returns one row. The second makes one row of up to 64 of these,
// in a tree for each key: over the frames of a partition, then over partitions.

#include <arrow/buffer.h>

#include <algorithm>
#include <cassert>
#include <map>
#include <optional>
#include <string>
#include <utility>

#include "aggregate/ReduceTree.h"
#include "column/arrays.h"
#include "column/concatenate.h"
#include "exchange/GroupKeys.h"
#include "kv/errors/StepError.h"
#include "operator/operations.h"
#include "operator/operators.h"
#include "operator/partials.h"

namespace kv::runtime {

namespace {

std::vector<ElementType> typesOf(const Chunk& keys) {
  std::vector<ElementType> types;
  std::ranges::transform(keys.columns, std::back_inserter(types), &Column::type);
  return types;
}

bool isUntyped(const Chunk& keys) {
  return std::ranges::any_of(
      keys.columns, [](const Column& column) { return column.type() == ElementType::Unknown; });
}

/// The places of a frame's rows by group, in order of rows; groups in order of their first row.
std::vector<std::vector<std::uint64_t>> placesByGroup(std::span<const std::uint32_t> groups,
                                                      std::vector<std::uint32_t>& found) {
  std::map<std::uint32_t, std::size_t> positions;
  std::vector<std::vector<std::uint64_t>> places;
  for (std::size_t row = 0; row < groups.size(); ++row) {
    const auto [known, isNew] = positions.try_emplace(groups[row], places.size());
    if (isNew) {
      places.emplace_back();
      found.push_back(groups[row]);
    }
    places[known->second].push_back(row);
  }
  return places;
}

Chunk rowsAt(const Chunk& array, const Column& places) {
  Chunk rows{.ordinals = RowOrdinals(0, places.rows()), .trailing = array.trailing};
  for (const Column& column : array.columns) {
    rows.columns.push_back(takeRows(column, places));
  }
  return rows;
}

/// The groups that were found so far, and a tree for each.
class KeyedTrees {
 public:
  /// `areReduced`: as of ReduceTree.
  KeyedTrees(const MergeScope& scope, bool areReduced) : scope_(scope), areReduced_(areReduced) {}

  KeyedTrees(const KeyedTrees&) = delete;
  KeyedTrees& operator=(const KeyedTrees&) = delete;

  /// The number of each row's group. Requires: columns of known types.
  std::span<const std::uint32_t> groupsOf(const Chunk& keys) {
    assert(!isUntyped(keys));
    if (!keys_) {
      keys_.emplace(typesOf(keys));
      names_ = keys.names;
      trailing_ = keys.trailing;
    }
    const auto groups = keys_->numbersOf(keys.columns);
    while (std::ssize(trees_) < keys_->size()) {
      trees_.emplace_back(
          [this](std::vector<Partial> partials) { return reduce(std::move(partials)); },
          areReduced_);
    }
    return groups;
  }

  void push(std::uint32_t group, Partial partial) { trees_[group].push(std::move(partial)); }

  /// The keys, then an array for each output: a row for each group.
  std::vector<Chunk> finish() {
    std::vector<Chunk> arrays{
        {.ordinals = RowOrdinals(0, std::ssize(trees_)), .names = names_, .trailing = trailing_}};
    arrays.front().columns = keys_->keys();
    std::vector<std::vector<Chunk>> parts;
    for (ReduceTree<Partial>& tree : trees_) {
      std::vector<Chunk> rows = arraysOf(scope_, *tree.finish());
      parts.resize(rows.size());
      for (std::size_t i = 0; i < rows.size(); ++i) {
        parts[i].push_back(std::move(rows[i]));
      }
    }
    for (const std::vector<Chunk>& part : parts) {
      arrays.push_back(stack(scope_.label, part));
    }
    return arrays;
  }

  bool hasGroups() const { return keys_ && keys_->size() > 0; }

 private:
  Partial reduce(std::vector<Partial> partials) const {
    Partial reduced = Reducer(scope_)(std::move(partials));
    reduced.arrays = arraysOf(scope_, std::exchange(reduced, {}));
    requireOneRow(scope_.label, reduced.arrays);
    return reduced;
  }

  MergeScope scope_;
  bool areReduced_;
  std::optional<GroupKeys> keys_;
  std::shared_ptr<const std::vector<std::string>> names_;
  Dimensions trailing_;
  std::vector<ReduceTree<Partial>> trees_;
};

class KeyedReductionRun final : public SinkRun {
 public:
  explicit KeyedReductionRun(const StepScope& scope)
      : scope_(scope), trees_({scope.step, scope.label, scope.functions}, false) {}

  void process(const StepInputs& inputs) override {
    const Chunk& keys = inputs.chunk(0);
    for (std::size_t input = 1; input < inputs.size(); ++input) {
      if (!inputs.isValue(input)) {
        inputs.array(input);
        inputs.requireSameRows(0, input);
      }
    }
    inputs.checkValues();
    if (keys.rows() > 0) {
      callByGroup(keys, inputs.functionInputs(1));
    } else if (mustCallOnNoRows()) {
      callOnNoRows(keys, inputs.functionInputs(1));
    }
  }

  SinkResult finish() override {
    if (trees_.hasGroups()) {
      isReducing_ = true;
      return {.chunks = trees_.finish()};
    }
    return {.chunks = std::move(withoutRows_)};
  }

  /// The second function isn't given rows.
  const GivenRows* rowsAtHand() const override { return isReducing_ ? &kNoRows : nullptr; }

 private:
  static constexpr GivenRows kNoRows{};

  bool mustCallOnNoRows() const {
    return scope_.typesForNoRows != nullptr && !scope_.typesForNoRows->contains(scope_.step);
  }

  void callByGroup(const Chunk& keys, const std::vector<FunctionInput>& inputs) {
    std::vector<std::uint32_t> found;
    const auto places = placesByGroup(trees_.groupsOf(keys), found);
    for (std::size_t i = 0; i < found.size(); ++i) {
      const Column rows(ElementType::UInt64, std::ssize(places[i]),
                        arrow::Buffer::Wrap(places[i].data(), places[i].size()));
      std::vector<FunctionInput> given = inputs;
      for (FunctionInput& input : given) {
        if (input.rows) {
          input.rows = rowsAt(*input.rows, rows);
        }
      }
      const auto ordinals = std::vector<std::int64_t>(places[i].begin(), places[i].end());
      const Chunk which{keys.partition, keys.ordinals.select(ordinals), nullptr, {}};
      Partial partial{.arrays = call(which, given)};
      requireOneRow(scope_.label, partial.arrays);
      isReducing_ = true;
      trees_.push(found[i], std::move(partial));
      isReducing_ = false;
    }
  }

  void callOnNoRows(const Chunk& keys, const std::vector<FunctionInput>& inputs) {
    withoutRows_ = {slice(keys, 0, 0)};
    for (const Chunk& array : call(keys, inputs)) {
      withoutRows_.push_back(slice(array, 0, 0));
    }
  }

  std::vector<Chunk> call(const Chunk& rows, const std::vector<FunctionInput>& inputs) {
    scope_.types.noteCall();
    return scope_.functions.call(scope_.step, rows, inputs, scope_.types);
  }

  StepScope scope_;
  KeyedTrees trees_;
  std::vector<Chunk> withoutRows_;  ///< keys and outputs, where there are no rows at all
  bool isReducing_ = false;
};

class KeyedReductionMerge final : public SinkMerge {
 public:
  explicit KeyedReductionMerge(const MergeScope& scope) : trees_(scope, true) {}

  void add(SinkResult result) override {
    std::vector<Chunk>& arrays = result.chunks;
    if (arrays.empty()) {
      return;
    }
    withoutRows_.clear();
    for (const Chunk& array : arrays) {
      withoutRows_.push_back(slice(array, 0, 0));
    }
    if (isUntyped(arrays.front())) {
      return;
    }
    const auto found = trees_.groupsOf(arrays.front());
    const std::vector<std::uint32_t> groups(found.begin(), found.end());
    for (std::size_t row = 0; row < groups.size(); ++row) {
      Partial partial;
      for (std::size_t i = 1; i < arrays.size(); ++i) {
        partial.arrays.push_back(slice(arrays[i], static_cast<std::int64_t>(row), 1));
      }
      trees_.push(groups[row], std::move(partial));
    }
  }

  MergedSink finish() override {
    if (!trees_.hasGroups()) {
      return {.arrays = withoutRows_.empty() ? std::vector{emptyArray({})} : withoutRows_};
    }
    std::vector<Chunk> arrays = trees_.finish();
    const Column order = ascendingOrder(arrays.front().columns);
    for (Chunk& array : arrays) {
      for (Column& column : array.columns) {
        column = takeRows(column, order);
      }
    }
    return {.arrays = std::move(arrays)};
  }

 private:
  KeyedTrees trees_;
  std::vector<Chunk> withoutRows_;
};

class KeyedReduction final : public SinkOperator {
 public:
  KeyedReduction()
      : SinkOperator({.name = "keyedReduction",
                      .sinkRows = SinkRows::Made,
                      .callsUser = true,
                      .seesFrames = true}) {}

  std::string planNote() const override { return "a row for each key"; }

  std::unique_ptr<SinkRun> start(const StepScope& scope) const override {
    return std::make_unique<KeyedReductionRun>(scope);
  }

  std::unique_ptr<SinkMerge> startMerge(const MergeScope& scope) const override {
    return std::make_unique<KeyedReductionMerge>(scope);
  }
};

}  // namespace

OperatorPtr makeKeyedReduction() { return std::make_shared<KeyedReduction>(); }

const OperatorRow& keyedReductionRow() {
  static const OperatorRow row{"keyedReduction", readPlain<makeKeyedReduction>};
  return row;
}

}  // namespace kv::runtime

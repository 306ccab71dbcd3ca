// Rows by key. A unit folds its rows into a table of groups, whose states leave it; the tables of
// all partitions are merged in a fixed tree, and the groups sorted by key at the end. So each group
// is folded in the order of its rows, whatever else is in the table.

#include <utility>
#include <vector>

#include "exchange/GroupFolder.h"
#include "operator/operations.h"
#include "operator/operators.h"

namespace kv::runtime {

namespace {

class GroupsRun final : public SinkRun {
 public:
  explicit GroupsRun(std::span<const GroupedValue> values) : folder_(values) {}

  void process(const StepInputs& inputs) override {
    const Chunk& keys = inputs.chunk(0);
    std::vector<Chunk> arrays;
    for (std::size_t input = 1; input < inputs.size(); ++input) {
      arrays.push_back(inputs.array(input));
      inputs.requireSameRows(0, input);
    }
    folder_.add(keys, arrays);
  }

  SinkResult finish() override {
    GroupFolder::Groups groups = folder_.finish();
    return {.partial = std::move(groups.bytes.layout),
            .reduced = std::move(groups.spilled),
            .chunks = {std::move(groups.bytes.states)}};
  }

 private:
  GroupFolder folder_;
};

class GroupsMerge final : public SinkMerge {
 public:
  explicit GroupsMerge(std::span<const GroupedValue> values) : merger_(values) {}

  void add(SinkResult result) override {
    const auto spilled = std::static_pointer_cast<const SpilledGroups>(result.reduced);
    merger_.add({{std::move(result.partial), std::move(result.chunks.at(0))}, spilled});
  }

  MergedSink finish() override { return {.arrays = merger_.answers()}; }

 private:
  GroupMerger merger_;
};

class Groups final : public SinkOperator {
 public:
  explicit Groups(std::vector<GroupedValue> values)
      : SinkOperator({.name = "groups", .sinkRows = SinkRows::Made}), values_(std::move(values)) {}

  const std::vector<GroupedValue>* groupedValues() const override { return &values_; }
  std::string planNote() const override { return "a row for each key"; }

  std::unique_ptr<SinkRun> start(const StepScope& /*scope*/) const override {
    return std::make_unique<GroupsRun>(values_);
  }

  std::unique_ptr<SinkMerge> startMerge(const MergeScope& /*scope*/) const override {
    return std::make_unique<GroupsMerge>(values_);
  }

  void write(ByteWriter& bytes) const override {
    bytes.number<std::uint64_t>(values_.size());
    for (const GroupedValue& value : values_) {
      bytes.text(value.function->name);
      bytes.flag(value.missing == MissingRule::Propagate);
      bytes.number<std::uint64_t>(value.input);
    }
  }

 private:
  std::vector<GroupedValue> values_;
};

/// The least bytes of a value: the length of a name, a flag, a number.
constexpr std::size_t kValueBytes = 2 * sizeof(std::uint64_t) + 1;

}  // namespace

OperatorPtr makeGroups(std::vector<GroupedValue> values) {
  return std::make_shared<Groups>(std::move(values));
}

namespace {

OperatorPtr readGroups(ByteReader& bytes) {
  std::vector<GroupedValue> values(bytes.count(kValueBytes));
  for (GroupedValue& value : values) {
    value.function = findGroupFunction(bytes.text());
    if (value.function == nullptr) {
      bytes.refuse();
    }
    value.missing = bytes.flag() ? MissingRule::Propagate : MissingRule::Skip;
    value.input = bytes.number<std::uint64_t>();
  }
  return makeGroups(std::move(values));
}

/// A step by key is built in if both of its functions are the same one of the runtime's, of one
/// array and with one result, or none of which it needs.
void describeByKey(const RecordedOperation& operation, OpSpec& spec) {
  const BuiltInFunction function = noteFunction(operation, spec).builtIn;
  const BuiltInFunction reduction = noteReduction(operation, spec).builtIn;
  const bool isBuiltIn = function.group != nullptr && function == reduction &&
                         spec.numOutputs <= 2 &&
                         (spec.numInputs == 2 || function.group->countsRows);
  spec.callsUser = !isBuiltIn;
  spec.op =
      isBuiltIn ? makeGroups({{function.group, function.form.missing, 0}}) : makeKeyedReduction();
  spec.wholeRun = isBuiltIn ? WholeRun::RunOperator : WholeRun::CallByKey;
  spec.label += " by key";
}

}  // namespace

const OperatorRow& groupsRow() {
  static const OperatorRow row{
      "groups",
      readGroups,
      {{.name = "kalvex.bigdata.internal.lazyeval.AggregateByKeyOperation",
        .inputs = {"Options", "FunctionHandle", "ReduceHandle", "NumInputs", "NumOutputs"},
        .arity = kRowFunction,
        .describe = describeByKey}}};
  return row;
}

}  // namespace kv::runtime

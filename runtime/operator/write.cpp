// A unit writes the rows of its partition to a file of its own. The merge gives the files of all
// units their place, and the target its name once the last one is there. A run leaves nothing
// unless it succeeds, so it may be repeated. The rows come in frames: how a source is read can't be
// seen in the files.

#include <algorithm>
#include <cstdint>
#include <memory>
#include <utility>

#include "column/allocate.h"
#include "column/concatenate.h"
#include "operator/operations.h"
#include "operator/operators.h"
#include "sink/PartWriter.h"

namespace kv::runtime {

namespace {

class WriteRun final : public SinkRun {
 public:
  WriteRun(const WriteTarget& target, const StepScope& scope)
      : isTable_(!target.names.empty()), writer_(target, scope.partition, scope.numPartitions) {}

  void process(const StepInputs& inputs) override {
    writer_.write(isTable_ ? tableOf(inputs) : inputs.array(0));
  }

  SinkResult finish() override { return {.partial = writer_.finish().toBytes()}; }

 private:
  static Chunk tableOf(const StepInputs& inputs) {
    const Chunk& shared = inputs.sharedRows();
    Chunk table{.partition = shared.partition, .ordinals = shared.ordinals};
    for (std::size_t input = 0; input < inputs.size(); ++input) {
      const Column& column = inputs.column(input);
      table.columns.push_back(inputs.isValue(input) ? repeat(column, shared.rows()) : column);
    }
    return table;
  }

  bool isTable_;
  PartWriter writer_;
};

class WriteMerge final : public SinkMerge {
 public:
  explicit WriteMerge(const WriteTarget& target) : parts_(target) {}

  void add(SinkResult result) override { parts_.add(WrittenPart::fromBytes(result.partial)); }

  /// The number of rows.
  MergedSink finish() override {
    return {.arrays = {{.ordinals = RowOrdinals(0, 1),
                        .columns = {scalarColumn(ElementType::Int64, parts_.finish())}}}};
  }

 private:
  PartsMerge parts_;
};

class Write final : public SinkOperator {
 public:
  explicit Write(WriteTarget target)
      : SinkOperator({.name = "write", .seesFrames = true}), target_(std::move(target)) {}

  const WriteTarget* target() const override { return &target_; }

  std::string planNote() const override {
    return target_.format + (target_.isFolder ? ", a file for each partition" : "");
  }

  std::unique_ptr<SinkRun> start(const StepScope& scope) const override {
    return std::make_unique<WriteRun>(target_, scope);
  }
  std::unique_ptr<SinkMerge> startMerge(const MergeScope& /*scope*/) const override {
    return std::make_unique<WriteMerge>(target_);
  }

  void write(ByteWriter& bytes) const override { target_.write(bytes); }

 private:
  WriteTarget target_;
};

}  // namespace

OperatorPtr makeWrite(WriteTarget target) { return std::make_shared<Write>(std::move(target)); }

namespace {

OperatorPtr readWrite(ByteReader& bytes) { return makeWrite(WriteTarget::read(bytes)); }

constexpr std::string_view kWriteClass = "kalvex.bigdata.internal.lazyeval.WriteOperation";

/// The target of an operation that writes, which a file may have been made to hold anything in.
WriteTarget targetIn(const RecordedOperation& operation) {
  WriteTarget target =
      targetOf(operation.text("Path"), operation.text("Format"), operation.flag("IsOverwriting"));
  setColumns(target, operation.texts("Names"), operation.texts("PartitionBy"));
  const std::size_t expected = std::max<std::size_t>(target.names.size(), 1);
  requireArity(kWriteClass, {expected, expected}, operation.numInputs(), 1);
  return target;
}

void checkWrite(const RecordedOperation& inputs) { targetIn(inputs); }

void describeWrite(const RecordedOperation& operation, OpSpec& spec) {
  WriteTarget target = targetIn(operation);
  spec.label = "write " + target.path;
  spec.op = makeWrite(std::move(target));
  spec.wholeRun = WholeRun::RunOperator;
}

}  // namespace

const OperatorRow& writeRow() {
  static const OperatorRow row{
      "write",
      readWrite,
      {{.name = kWriteClass,
        .inputs = {"Path", "Format", "IsOverwriting", "Names", "PartitionBy", "NumInputs"},
        .arity = kHandedOver,
        .describe = describeWrite,
        .check = checkWrite,
        .shownProperty = "Path"}}};
  return row;
}

}  // namespace kv::runtime

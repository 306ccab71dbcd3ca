// A function of partitions gets the frames of a partition one by one, is given its place, and
// returns any number of rows and whether it is finished. While it isn't, it is called again: after
// the last rows with none. So it is called in each partition, also in one without rows. A frame
// waits until it is known whether it is the last.

#include <memory>
#include <utility>

#include "column/concatenate.h"
#include "operator/NewRows.h"
#include "operator/operations.h"
#include "operator/operators.h"

namespace kv::runtime {

namespace {

class PartitionwiseRun final : public FramedFunction {
 public:
  PartitionwiseRun(const StepScope& scope, std::span<const FlowInput> inputs)
      : FramedFunction(scope, 0, inputs), place_{scope.numPartitions, {0}, {false}} {}

  void push(std::size_t input, const Chunk& rows) override {
    if (!isFinished_) {
      FramedFunction::push(input, rows);
    }
  }

  std::optional<std::vector<Chunk>> next() override {
    if (isFinished_ || (!waiting().isAtEnd() && waiting().rows() <= rowsOfFrame())) {
      return std::nullopt;
    }
    if (std::optional<std::vector<Chunk>> frame = nextFrame()) {
      frame_ = *std::move(frame);
    } else if (!waiting().isAtEnd()) {
      return std::nullopt;
    } else {
      frame_ = withoutRows(frame_);
    }
    if (frame_.front().partition == place_.numPartitions) {  // of the unit without rows
      isFinished_ = true;
      if (auto known = function().resultsWithoutRows()) {
        return numbered(*std::move(known), place_.numPartitions);
      }
    }
    return call();
  }

  bool wantsMore(std::size_t /*input*/) const override { return !isFinished_; }

 private:
  static std::vector<Chunk> withoutRows(std::vector<Chunk> frame) {
    for (Chunk& rows : frame) {
      rows = slice(rows, rows.rows(), 0);
    }
    return frame;
  }

  std::vector<Chunk> call() {
    const Chunk& rows = frame_.front();
    place_.isLast[0] = waiting().isAtEnd() && waiting().rows() == 0;
    PartitionResults results =
        function().callPartition(rows, arguments(frame_), place_, /*returnsUnused=*/false);
    place_.firstRow[0] += rows.rows();
    isFinished_ = results.isFinished;
    return numbered(std::move(results.outputs), rows.partition);
  }

  PartitionPlace place_;
  std::vector<Chunk> frame_;
  bool isFinished_ = false;
};

class Partitionwise final : public NewRowsOperator {
 public:
  Partitionwise() : NewRowsOperator("partitionwise") {}

  std::unique_ptr<FlowRun> start(const StepScope& scope,
                                 std::span<const FlowInput> inputs) const override {
    return std::make_unique<PartitionwiseRun>(scope, inputs);
  }
};

}  // namespace

OperatorPtr makePartitionwise() { return std::make_shared<Partitionwise>(); }

namespace {

void describePartitionwise(const RecordedOperation& operation, OpSpec& spec) {
  describeNewRows(operation, spec, makePartitionwise());
}

}  // namespace

const OperatorRow& partitionwiseRow() {
  static const OperatorRow row{
      "partitionwise",
      readPlain<makePartitionwise>,
      {{.name = "kalvex.bigdata.internal.lazyeval.PartitionwiseOperation",
        .inputs = {"Options", "FunctionHandle", "NumInputs", "NumOutputs", "DependsOnOnlyHead"},
        .arity = kRowFunction,
        .describe = describePartitionwise}}};
  return row;
}

}  // namespace kv::runtime

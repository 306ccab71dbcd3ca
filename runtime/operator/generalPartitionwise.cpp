// A function of partitions (see partitionwise.cpp) whose inputs needn't have the same rows: each
// has frames of its own, and an input that has ended comes without rows. The function may return
// rows that it hasn't used, which come again before the next frame of their input. So that it sees
// the same however rows are read, it is called when each input has a whole frame, or has ended.

#include <algorithm>
#include <array>
#include <memory>
#include <string>
#include <utility>

#include "column/ChunkBuffer.h"
#include "column/concatenate.h"
#include "column/pieces.h"
#include "kv/errors/StepError.h"
#include "operator/NewRows.h"
#include "operator/operations.h"
#include "operator/operators.h"

namespace kv::runtime {

namespace {

/// The rows of one input that wait.
struct InputRows {
  ChunkBuffer waiting{};
  std::optional<Chunk> empty{};  ///< without rows, with their types
  std::optional<Chunk> unused{};
  std::int64_t frameRows = 0;
  std::int64_t firstRow = 0;  ///< of the next call, in the partition
  bool isEnded = false;

  /// True if the next frame has come, and whether it is the last is known.
  bool isReady() const { return isEnded || (frameRows > 0 && waiting.rows() > frameRows); }

  /// The unused rows, then the next frame.
  Chunk take() {
    const std::int64_t rows = std::min(frameRows, waiting.rows());
    const Chunk frame = rows > 0 ? waiting.take(rows) : empty.value();
    Chunk all =
        unused && unused->rows() > 0 ? concatenateArrays(std::array{*unused, frame}) : frame;
    all.partition = frame.partition;
    all.ordinals = RowOrdinals(firstRow, all.rows());
    return all;
  }
};

class GeneralRun final : public FlowRun {
 public:
  GeneralRun(const StepScope& scope, std::span<const FlowInput> inputs)
      : label_(scope.label),
        numPartitions_(scope.numPartitions),
        frameRows_(scope.frameRows),
        inputs_(inputs),
        rows_(inputs_.origins().size()),
        function_(scope) {}

  void push(std::size_t input, const Chunk& chunk) override {
    InputRows& own = rows_[inputs_.placeOf(input)];
    if (chunk.rows() > 0 && own.frameRows == 0) {
      const std::vector<ElementType> types(chunk.columns.size(), chunk.type());
      own.frameRows = frameRows_ > 0 ? frameRows_ : pieceRows(types);
    }
    const bool isTyped =
        own.empty && !own.empty->columns.empty() && own.empty->type() != ElementType::Unknown;
    if (!isTyped) {
      own.empty = slice(chunk, 0, 0);
    }
    if (!isFinished_) {
      own.waiting.push(chunk);
    }
  }

  void finishInput(std::size_t input) override {
    if (inputs_.hasRows(input)) {
      rows_[inputs_.placeOf(input)].isEnded = true;
    }
  }

  std::optional<std::vector<Chunk>> next() override {
    function_.forget();
    if (isFinished_ || !std::ranges::all_of(rows_, &InputRows::isReady)) {
      return std::nullopt;
    }
    if (rows_.front().empty->partition == numPartitions_) {  // of the unit without rows
      isFinished_ = true;
      if (auto known = function_.resultsWithoutRows()) {
        return numbered(*std::move(known), numPartitions_);
      }
    }
    return call();
  }

  bool wantsMore(std::size_t /*input*/) const override { return !isFinished_; }
  const GivenRows* rowsAtHand() const override { return function_.rowsAtHand(); }

 private:
  std::vector<Chunk> call() {
    PartitionPlace place{numPartitions_};
    std::vector<Chunk> given;
    for (InputRows& own : rows_) {
      place.firstRow.push_back(own.firstRow);
      given.push_back(own.take());
      place.isLast.push_back(own.isEnded && own.waiting.rows() == 0);
    }
    const auto& longest = *std::ranges::max_element(given, {}, &Chunk::rows);
    PartitionResults results = function_.callPartition(longest, inputs_.arguments(label_, given),
                                                       place, /*returnsUnused=*/true);
    isFinished_ = results.isFinished;
    const std::int64_t consumed = takeBack(given, std::move(results.unused));
    const bool isStuck = consumed == 0 && (longest.rows() > 0 || results.outputs[0].rows() == 0);
    if (isStuck && !isFinished_ && std::ranges::find(place.isLast, false) == place.isLast.end()) {
      errors::raiseStep("KALVEX:array:NothingConsumed",
                        {std::string(label_), std::to_string(longest.rows())});
    }
    return numbered(std::move(results.outputs), longest.partition);
  }

  /// Keeps what the function hasn't used.
  /// Result: how many rows it has used.
  std::int64_t takeBack(const std::vector<Chunk>& given, std::vector<std::optional<Chunk>> unused) {
    std::int64_t consumed = 0;
    for (std::size_t i = 0; i < rows_.size(); ++i) {
      const std::int64_t left = unused[i] ? unused[i]->rows() : 0;
      const bool isLike = left == 0 || unused[i]->arrayType() == given[i].arrayType();
      if (left > given[i].rows() || !isLike) {
        errors::raiseStep("KALVEX:array:UnusedRows",
                          {std::string(label_), std::to_string(i + 1),
                           std::to_string(given[i].rows()), std::to_string(left)});
      }
      consumed += given[i].rows() - left;
      rows_[i].firstRow += given[i].rows() - left;
      rows_[i].unused = std::move(unused[i]);
    }
    return consumed;
  }

  std::vector<Chunk> numbered(std::vector<Chunk> outputs, std::int64_t partition) {
    made_.number(label_, outputs, partition);
    return outputs;
  }

  std::string_view label_;
  std::int64_t numPartitions_;
  std::int64_t frameRows_;
  MixedInputs inputs_;
  std::vector<InputRows> rows_;
  StepFunction function_;
  NewRows made_;
  bool isFinished_ = false;
};

class GeneralPartitionwise final : public NewRowsOperator {
 public:
  GeneralPartitionwise() : NewRowsOperator("generalPartitionwise", /*combinesRows=*/false) {}

  std::unique_ptr<FlowRun> start(const StepScope& scope,
                                 std::span<const FlowInput> inputs) const override {
    return std::make_unique<GeneralRun>(scope, inputs);
  }
};

}  // namespace

OperatorPtr makeGeneralPartitionwise() { return std::make_shared<GeneralPartitionwise>(); }

namespace {

void describeGeneralPartitionwise(const RecordedOperation& operation, OpSpec& spec) {
  describeNewRows(operation, spec, makeGeneralPartitionwise());
}

}  // namespace

const OperatorRow& generalPartitionwiseRow() {
  static const OperatorRow row{
      "generalPartitionwise",
      readPlain<makeGeneralPartitionwise>,
      {{.name = "kalvex.bigdata.internal.lazyeval.GeneralizedPartitionwiseOperation",
        .inputs = {"Options", "FunctionHandle", "NumInputs", "NumOutputs"},
        .arity = kRowFunction,
        .describe = describeGeneralPartitionwise}}};
  return row;
}

}  // namespace kv::runtime

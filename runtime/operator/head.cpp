// The first rows of all partitions together. A unit keeps as many of its first rows, since it
// doesn't know how many come before; the merge takes what is missing, in order, and needs no more
// partitions when all are there. So little more is read than what they need.

#include <algorithm>
#include <cassert>
#include <memory>
#include <utility>

#include "column/concatenate.h"
#include "column/joinChunks.h"
#include "operator/operations.h"
#include "operator/operators.h"

namespace kv::runtime {

namespace {

class HeadRun final : public SinkRun {
 public:
  explicit HeadRun(std::int64_t rows) : rowsLeft_(rows) {}

  void process(const StepInputs& inputs) override {
    const std::int64_t rows = std::min(rowsLeft_, inputs.chunk(0).rows());
    const bool isNews = rows > 0 || kept_.empty();
    for (std::size_t input = 0; input < inputs.size() && isNews; ++input) {
      inputs.requireSameRows(0, input);
      kept_.push_back(slice(inputs.chunk(input), 0, rows));
    }
    rowsLeft_ -= rows;
  }

  SinkResult finish() override { return {.chunks = std::move(kept_)}; }
  bool wantsMore() const override { return rowsLeft_ > 0; }

 private:
  std::int64_t rowsLeft_;
  std::vector<Chunk> kept_;  ///< a chunk of each input, then the next of each
};

class HeadMerge final : public SinkMerge {
 public:
  HeadMerge(std::int64_t rows, std::size_t numInputs) : rowsLeft_(rows), inputs_(numInputs) {}

  void add(SinkResult result) override {
    for (std::size_t first = 0; first < result.chunks.size(); first += inputs_.size()) {
      const std::int64_t rows = std::min(rowsLeft_, result.chunks[first].rows());
      for (std::size_t input = 0; input < inputs_.size(); ++input) {
        inputs_[input].push_back(slice(result.chunks[first + input], 0, rows));
      }
      rowsLeft_ -= rows;
    }
  }

  /// The types of no rows may come from any partition.
  bool wantsMore() const override { return rowsLeft_ > 0 || !hasRows(); }

  MergedSink finish() override {
    MergedSink merged;
    for (std::vector<Chunk>& chunks : inputs_) {
      merged.arrays.push_back(joinChunks(std::move(chunks)));
    }
    return merged;
  }

 private:
  bool hasRows() const {
    return std::ranges::any_of(inputs_.front(),
                               [](const Chunk& chunk) { return chunk.rows() > 0; });
  }

  std::int64_t rowsLeft_;
  std::vector<std::vector<Chunk>> inputs_;  ///< the chunks of each
};

class Head final : public SinkOperator {
 public:
  Head(std::int64_t rows, std::size_t numInputs)
      : SinkOperator({.name = "head"}), rows_(rows), numInputs_(numInputs) {}

  std::string planNote() const override { return "stops when these rows are there"; }

  std::unique_ptr<SinkRun> start(const StepScope& /*scope*/) const override {
    return std::make_unique<HeadRun>(rows_);
  }
  std::unique_ptr<SinkMerge> startMerge(const MergeScope& /*scope*/) const override {
    return std::make_unique<HeadMerge>(rows_, numInputs_);
  }

  void write(ByteWriter& bytes) const override {
    bytes.number(rows_);
    bytes.number<std::uint64_t>(numInputs_);
  }

 private:
  std::int64_t rows_;
  std::size_t numInputs_;
};

}  // namespace

OperatorPtr makeHead(std::int64_t rows, std::size_t numInputs) {
  assert(rows >= 0 && numInputs > 0);
  return std::make_shared<Head>(rows, numInputs);
}

namespace {

OperatorPtr readHead(ByteReader& bytes) {
  const auto rows = bytes.number<std::int64_t>();
  const auto numInputs = bytes.number<std::uint64_t>();
  if (rows < 0 || numInputs == 0) {
    bytes.refuse();
  }
  return makeHead(rows, numInputs);
}

std::int64_t headRows(const RecordedOperation& operation) {
  return rowCount(operation.number("NumRows"), 0, "KALVEX:array:HeadRows");
}

void checkHead(const RecordedOperation& inputs) { headRows(inputs); }

void describeHead(const RecordedOperation& operation, OpSpec& spec) {
  const std::int64_t rows = headRows(operation);
  spec.op = makeHead(rows, spec.numInputs);
  spec.wholeRun = WholeRun::RunOperator;
  spec.label = "first " + countedRows(rows);
}

}  // namespace

const OperatorRow& headRow() {
  static const OperatorRow row{"head",
                               readHead,
                               {{.name = "kalvex.bigdata.internal.lazyeval.HeadOperation",
                                 .inputs = {"NumArrays", "NumRows"},
                                 .arity = kEachArray,
                                 .describe = describeHead,
                                 .check = checkHead,
                                 .supportsPreview = true}}};
  return row;
}

}  // namespace kv::runtime

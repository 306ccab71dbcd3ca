// A function of chunks gets frames of the rows that are left, and returns as many rows as it likes.
// These are rows of their own, numbered in each partition from 0.

#include <fmt/format.h>
#include <cassert>
#include <memory>
#include <utility>

#include "operator/NewRows.h"
#include "operator/operations.h"
#include "operator/operators.h"

namespace kv::runtime {

namespace {

class ChunkwiseRun final : public FramedFunction {
 public:
  using FramedFunction::FramedFunction;

  std::optional<std::vector<Chunk>> next() override {
    const std::optional<std::vector<Chunk>> frame = nextFrame();
    if (!frame) {
      return std::nullopt;
    }
    const Chunk& rows = frame->front();
    std::optional<std::vector<Chunk>> results;
    if (rows.rows() == 0) {
      results = function().resultsWithoutRows();
    }
    if (!results) {
      results = function().call(rows, arguments(*frame));
    }
    return numbered(*std::move(results), rows.partition);
  }
};

class Chunkwise final : public NewRowsOperator {
 public:
  explicit Chunkwise(std::int64_t chunkRows)
      : NewRowsOperator("chunkwise"), chunkRows_(chunkRows) {}

  std::unique_ptr<FlowRun> start(const StepScope& scope,
                                 std::span<const FlowInput> inputs) const override {
    return std::make_unique<ChunkwiseRun>(scope, chunkRows_, inputs);
  }

  void write(ByteWriter& bytes) const override { bytes.number(chunkRows_); }

 private:
  std::int64_t chunkRows_;
};

}  // namespace

OperatorPtr makeChunkwise(std::int64_t chunkRows) {
  assert(chunkRows >= 0);
  return std::make_shared<Chunkwise>(chunkRows);
}

namespace {

OperatorPtr readChunkwise(ByteReader& bytes) {
  const auto chunkRows = bytes.number<std::int64_t>();
  if (chunkRows < 0) {
    bytes.refuse();
  }
  return makeChunkwise(chunkRows);
}

std::int64_t fixedChunkRows(const RecordedOperation& operation) {
  return rowCount(operation.number("NumSlices"), 1, "KALVEX:array:ChunkRows");
}

void checkFixedChunks(const RecordedOperation& inputs) { fixedChunkRows(inputs); }

void describeChunkwise(const RecordedOperation& operation, OpSpec& spec) {
  describeNewRows(operation, spec, makeChunkwise(0));
}

void describeFixedChunkwise(const RecordedOperation& operation, OpSpec& spec) {
  const std::int64_t rows = fixedChunkRows(operation);
  describeNewRows(operation, spec, makeChunkwise(rows));
  spec.label += fmt::format(", {} at a time", countedRows(rows));
}

}  // namespace

const OperatorRow& chunkwiseRow() {
  static const OperatorRow row{
      "chunkwise",
      readChunkwise,
      {{.name = "kalvex.bigdata.internal.lazyeval.ChunkwiseOperation",
        .inputs = {"Options", "FunctionHandle", "NumInputs", "NumOutputs"},
        .arity = kRowFunction,
        .describe = describeChunkwise},
       {.name = "kalvex.bigdata.internal.lazyeval.FixedChunkwiseOperation",
        .inputs = {"Options", "NumSlices", "FunctionHandle", "NumInputs", "NumOutputs"},
        .arity = kRowFunction,
        .describe = describeFixedChunkwise,
        .check = checkFixedChunks}}};
  return row;
}

}  // namespace kv::runtime

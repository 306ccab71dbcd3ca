#include <fmt/format.h>
#include <algorithm>
#include <cassert>
#include <limits>
#include <memory>

#include "column/pieces.h"
#include "kv/errors/StepError.h"
#include "kv/errors/shownText.h"
#include "operator/AlignedRows.h"
#include "operator/operations.h"
#include "operator/operators.h"

namespace kv::runtime {

namespace {

class FrameRun final : public AlignedFlow {
 public:
  FrameRun(std::int64_t frameRows, std::span<const FlowInput> inputs)
      : AlignedFlow(originsOf(inputs)), frameRows_(frameRows) {}

 private:
  std::int64_t rowsToEmit(const AlignedRows& waiting) override {
    return waiting.rowsOfFrame(frameRows_);
  }

  std::int64_t frameRows_;
};

class Frame final : public FlowOperator {
 public:
  explicit Frame(std::int64_t frameRows)
      : FlowOperator({.name = "frame", .passesInputs = true, .frameRows = frameRows}) {}

  ColumnNeeds needsOf(std::size_t /*input*/, const ColumnNeeds& asked) const override {
    return asked;
  }

  std::unique_ptr<FlowRun> start(const StepScope& /*scope*/,
                                 std::span<const FlowInput> inputs) const override {
    return std::make_unique<FrameRun>(facts().frameRows, inputs);
  }

  void write(ByteWriter& bytes) const override { bytes.number(facts().frameRows); }
};

}  // namespace

OperatorPtr makeFrame(std::int64_t frameRows) {
  assert(frameRows >= 0);
  return std::make_shared<Frame>(frameRows);
}

namespace {

OperatorPtr readFrame(ByteReader& bytes) {
  const auto frameRows = bytes.number<std::int64_t>();
  if (frameRows < 0) {
    bytes.refuse();
  }
  return makeFrame(frameRows);
}

/// The number in parameter `index` of resizechunks; infinity for an upper bound that is none.
///
/// Errors: "KALVEX:array:ResizeParameter" with the name, class or place of anything else;
///         "KALVEX:array:ChunkRows" with a number that can't be meant.
double chunkRowsIn(const RecordedValue& parameter, std::size_t index) {
  if (parameter.text) {
    errors::raiseStep("KALVEX:array:ResizeParameter",
                      {fmt::format("'{}'", errors::shownText(*parameter.text))});
  }
  if (index > 1 || !parameter.number) {
    errors::raiseStep("KALVEX:array:ResizeParameter",
                      {index > 1 ? "a third one" : fmt::format("a {}", parameter.className)});
  }
  const bool isNoBound = index == 1 && *parameter.number == std::numeric_limits<double>::infinity();
  return isNoBound ? *parameter.number
                   : static_cast<double>(rowCount(*parameter.number, 1, "KALVEX:array:ChunkRows"));
}

/// The rows of a chunk: the first parameter, or the second if that is less.
/// Errors: those of `chunkRowsIn`.
std::int64_t chunkRows(const std::vector<RecordedValue>& parameters) {
  auto rows = static_cast<double>(kPieceRows);
  for (std::size_t i = 0; i < parameters.size(); ++i) {
    const double number = chunkRowsIn(parameters[i], i);
    rows = i == 0 ? number : std::min(rows, number);
  }
  return static_cast<std::int64_t>(rows);
}

void checkResize(const RecordedOperation& inputs) { chunkRows(inputs.parameters()); }

void describeResize(const RecordedOperation& operation, OpSpec& spec) {
  const std::int64_t rows = chunkRows(operation.parameters());
  spec.op = makeFrame(rows);
  spec.wholeRun = WholeRun::PassOn;
  spec.label = "resize chunks to " + countedRows(rows);
}

}  // namespace

const OperatorRow& frameRow() {
  static const OperatorRow row{"frame",
                               readFrame,
                               {{.name = "kalvex.bigdata.internal.lazyeval.ChunkResizeOperation",
                                 .inputs = {"NumArrays", "Parameters"},
                                 .arity = kEachArray,
                                 .describe = describeResize,
                                 .check = checkResize}}};
  return row;
}

}  // namespace kv::runtime

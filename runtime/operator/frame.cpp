#include <cassert>
#include <memory>

#include "operator/AlignedRows.h"
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

OperatorPtr readFrame(ByteReader& bytes) {
  const auto frameRows = bytes.number<std::int64_t>();
  if (frameRows < 0) {
    bytes.refuse();
  }
  return makeFrame(frameRows);
}

}  // namespace kv::runtime

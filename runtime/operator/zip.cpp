// Where arrays of the same rows that are cut differently meet, a zip aligns them by ordinals: rows
// of an input that is ahead wait, and what all inputs have goes on in chunks that share buffers.

#include <memory>

#include "operator/AlignedRows.h"
#include "operator/operations.h"
#include "operator/operators.h"

namespace kv::runtime {

namespace {

class ZipRun final : public AlignedFlow {
 public:
  explicit ZipRun(std::span<const FlowInput> inputs) : AlignedFlow(originsOf(inputs)) {}

 private:
  std::int64_t rowsToEmit(const AlignedRows& waiting) override { return waiting.frontRows(); }
};

class Zip final : public FlowOperator {
 public:
  Zip() : FlowOperator({.name = "zip", .passesInputs = true}) {}

  std::string planNote() const override { return "zips rows that are cut differently"; }

  ColumnNeeds needsOf(std::size_t /*input*/, const ColumnNeeds& asked) const override {
    return asked;
  }

  std::unique_ptr<FlowRun> start(const StepScope& /*scope*/,
                                 std::span<const FlowInput> inputs) const override {
    return std::make_unique<ZipRun>(inputs);
  }
};

}  // namespace

OperatorPtr makeZip() { return std::make_shared<Zip>(); }

const OperatorRow& zipRow() {
  static const OperatorRow row{"zip", readPlain<makeZip>};
  return row;
}

}  // namespace kv::runtime

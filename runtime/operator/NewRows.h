#pragma once

#include <cassert>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "operator/AlignedRows.h"
#include "operator/Operator.h"
#include "operator/StepFunction.h"

namespace kv::runtime {

/// The inputs of a flow step that calls a user's function: some have rows, others are values.
class MixedInputs {
 public:
  explicit MixedInputs(std::span<const FlowInput> inputs);

  /// What made each input with rows.
  const std::vector<std::string_view>& origins() const { return origins_; }

  bool hasRows(std::size_t input) const { return inputs_[input].value == nullptr; }

  /// The place of an input among those with rows. Requires: hasRows(input).
  std::size_t placeOf(std::size_t input) const {
    assert(hasRows(input));
    return placeOf_[input];
  }

  /// The arguments of the function for these rows of each input that has any.
  /// Errors: "KALVEX:array:NeedsColumn" with the label for a table.
  std::vector<FunctionInput> arguments(std::string_view label,
                                       const std::vector<Chunk>& rows) const;

 private:
  std::vector<FlowInput> inputs_;
  std::vector<std::size_t> placeOf_;
  std::vector<std::string_view> origins_;
};

/// Numbers the rows that a step makes in a partition, from 0.
class NewRows {
 public:
  /// Makes the outputs of one call the next rows of the partition.
  /// Errors: "KALVEX:array:OutputRows" with the label, if one output has more rows than another.
  void number(std::string_view label, std::vector<Chunk>& outputs, std::int64_t partition);

 private:
  std::int64_t next_ = 0;
};

/// An operator whose function makes rows of its own.
class NewRowsOperator : public FlowOperator {
 public:
  std::string planNote() const final { return "makes new rows"; }

 protected:
  explicit NewRowsOperator(std::string_view name, bool combinesRows = true)
      : FlowOperator({.name = name,
                      .rows = RowEffect::Renew,
                      .callsUser = true,
                      .seesFrames = true,
                      .combinesRows = combinesRows,
                      .takesValues = true}) {}
};

/// A flow step that calls a user's function on frames of rows that all inputs share.
class FramedFunction : public FlowRun {
 public:
  /// `frameRows`: rows of a frame; 0: as many as the scope asks for, or as pieceRows() gives.
  FramedFunction(const StepScope& scope, std::int64_t frameRows, std::span<const FlowInput> inputs)
      : label_(scope.label),
        inputs_(inputs),
        waiting_(inputs_.origins()),
        function_(scope),
        frameRows_(frameRows > 0 ? frameRows : scope.frameRows) {}

  void push(std::size_t input, const Chunk& rows) override {
    waiting_.push(inputs_.placeOf(input), rows);
  }
  void finishInput(std::size_t input) final {
    if (inputs_.hasRows(input)) {
      waiting_.finishInput(inputs_.placeOf(input));
    }
  }
  const GivenRows* rowsAtHand() const final { return function_.rowsAtHand(); }

 protected:
  std::string_view label() const { return label_; }
  StepFunction& function() { return function_; }
  const AlignedRows& waiting() const { return waiting_; }

  /// The next frame; at the end one that may be shorter, or once none if there were no rows.
  std::optional<std::vector<Chunk>> nextFrame();

  /// How many rows the next frame would have; 0 until they have come.
  std::int64_t rowsOfFrame() { return waiting_.rowsOfFrame(frameRows_); }

  std::vector<FunctionInput> arguments(const std::vector<Chunk>& frame) const {
    return inputs_.arguments(label_, frame);
  }

  /// What a call returned as the next rows of the partition.
  std::vector<Chunk> numbered(std::vector<Chunk> outputs, std::int64_t partition) {
    made_.number(label_, outputs, partition);
    return outputs;
  }

 private:
  std::string_view label_;
  MixedInputs inputs_;
  AlignedRows waiting_;
  StepFunction function_;
  std::int64_t frameRows_;
  NewRows made_;
};

}  // namespace kv::runtime

#pragma once

#include <cassert>
#include <cstddef>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "kernel/evaluateArrays.h"
#include "kv/runtime/Chunk.h"
#include "operator/StageInput.h"
#include "operator/UserFunctions.h"

namespace kv::runtime {

/// True if two chunks of one partition have the same rows of the source.
bool haveSameRows(const RowOrdinals& a, const RowOrdinals& b);

/// Refuses a result that isn't logical.
/// Errors: "KALVEX:array:NotLogical" with the label and the type.
void requireLogical(std::string_view label, const Chunk& result);

/// One input of a step: rows, or a value that isn't known to be rows of the stage.
struct StepInput {
  const Chunk* rows = nullptr;        ///< null for a value
  const StageInput* value = nullptr;  ///< null for rows
  std::size_t valueNumber = 0;        ///< of the value among the stage's inputs
  std::string_view origin{};          ///< what made it, for messages
};

/// The inputs of a step for the rows at hand, and the checks that operators share.
///
/// Lives: while the step processes these rows.
class StepInputs {
 public:
  /// `label`: what the step does, for messages. `spreads`: a value of one row is repeated for every
  /// row.
  StepInputs(std::string_view label, bool spreads, std::span<const StepInput> inputs)
      : label_(label), spreads_(spreads), inputs_(inputs) {}

  std::size_t size() const { return inputs_.size(); }
  std::string_view label() const { return label_; }

  bool isValue(std::size_t input) const { return inputs_[input].value != nullptr; }

  /// Requires: isValue(input).
  const StageInput& value(std::size_t input) const {
    assert(isValue(input));
    return *inputs_[input].value;
  }

  /// Errors: "KALVEX:array:NeedsRows" or "KALVEX:array:RowsDiffer" for a value.
  const Chunk& chunk(std::size_t input) const;

  /// Errors: those of `chunk`; "KALVEX:array:NeedsColumn" for a table.
  const Chunk& array(std::size_t input) const;

  /// Of a value that goes with any rows its one row.
  /// Errors: those of `array` and of `checkValue`; "KALVEX:array:NeedsColumn" for an array of
  ///         several columns.
  const Column& column(std::size_t input) const;

  /// The rows that all inputs share; a value goes with any, if it has one row and `spreads` is set,
  /// or is opaque.
  /// Errors: those of `array`; "KALVEX:array:RowsDiffer" with the origins of both inputs.
  const Chunk& sharedRows() const;

  /// Errors: "KALVEX:array:RowsDiffer" with the origins of both inputs.
  void requireSameRows(std::size_t a, std::size_t b) const;

  /// Refuses values that don't go with any rows, as `sharedRows` does.
  void checkValues() const;
  /// The same for one. Requires: isValue(input).
  void checkValue(std::size_t input) const;

  /// True if the type of one of the inputs with rows isn't known; it has no rows then.
  bool hasUnknown() const;

  /// The inputs of an element function.
  std::vector<ArrayOperand> operands() const;

  /// The inputs of a user's function: those from `first` on.
  std::vector<FunctionInput> functionInputs(std::size_t first = 0) const;

 private:
  [[noreturn]] void refuseValue(std::size_t input) const;

  std::string_view label_;
  bool spreads_;
  std::span<const StepInput> inputs_;
};

}  // namespace kv::runtime

// What an operator may take for granted of its inputs is checked here, once for all operators,
// with the messages that a user sees.

#include "operator/StepInputs.h"

#include <fmt/core.h>

#include <optional>

#include "column/arrays.h"
#include "kv/errors/StepError.h"

namespace kv::runtime {

using errors::raiseStep;

bool haveSameRows(const RowOrdinals& a, const RowOrdinals& b) {
  if (a.rows() != b.rows()) {
    return false;
  }
  if (a.rows() == 0 || (a.isRange() && b.isRange())) {
    return a.rows() == 0 || a.at(0) == b.at(0);
  }
  for (std::int64_t row = 0; row < a.rows(); ++row) {
    if (a.at(row) != b.at(row)) {
      return false;
    }
  }
  return true;
}

void requireLogical(std::string_view label, const Chunk& result) {
  if (result.type() != ElementType::Logical) {
    raiseStep("KALVEX:array:NotLogical",
              {std::string(label), std::string(elementTypeName(result.type()))});
  }
}

const Chunk& StepInputs::chunk(std::size_t input) const {
  if (isValue(input)) {
    refuseValue(input);
  }
  return *inputs_[input].rows;
}

const Chunk& StepInputs::array(std::size_t input) const {
  const Chunk& rows = chunk(input);
  if (rows.names != nullptr) {
    raiseStep("KALVEX:array:NeedsColumn", {std::string(label_), "a table"});
  }
  return rows;
}

const Column& StepInputs::column(std::size_t input) const {
  if (isValue(input)) {
    checkValue(input);
  }
  const Chunk& rows = isValue(input) ? value(input).rows : array(input);
  if (rows.columns.size() != 1) {
    raiseStep("KALVEX:array:NeedsColumn",
              {std::string(label_), fmt::format("an {} array", describeSize(rows.trailing))});
  }
  return rows.columns.front();
}

const Chunk& StepInputs::sharedRows() const {
  std::optional<std::size_t> first;
  for (std::size_t input = 0; input < size(); ++input) {
    if (isValue(input)) {
      continue;
    }
    array(input);  // refuses a table
    if (first) {
      requireSameRows(*first, input);
    } else {
      first = input;
    }
  }
  checkValues();
  if (!first) {
    raiseStep("KALVEX:array:NeedsRows", {std::string(label_)});
  }
  return *inputs_[*first].rows;
}

void StepInputs::requireSameRows(std::size_t a, std::size_t b) const {
  const RowOrdinals& rowsA = chunk(a).ordinals;
  const RowOrdinals& rowsB = chunk(b).ordinals;
  if (!haveSameRows(rowsA, rowsB)) {
    raiseStep("KALVEX:array:RowsDiffer",
              {std::string(inputs_[a].origin), std::string(inputs_[b].origin), ""});
  }
}

void StepInputs::checkValues() const {
  for (std::size_t input = 0; input < size(); ++input) {
    if (isValue(input)) {
      checkValue(input);
    }
  }
}

void StepInputs::checkValue(std::size_t input) const {
  const StageInput& given = value(input);
  if (!given.isOpaque && (given.places || given.rows.rows() != 1 || !spreads_)) {
    refuseValue(input);
  }
}

/// A value where rows are needed: it has one row, or those of something else.
void StepInputs::refuseValue(std::size_t input) const {
  const StageInput& refused = value(input);
  const std::int64_t rows = refused.places ? refused.places->rows() : refused.rows.rows();
  const bool mayNotSpread = refused.places || rows != 1 || !spreads_;
  for (std::size_t other = 0; other < size(); ++other) {
    if (mayNotSpread && !isValue(other)) {
      const bool mayHaveOneRow = spreads_ && !refused.places;
      raiseStep("KALVEX:array:RowsDiffer",
                {fmt::format("{} ({} row{})", inputs_[input].origin, rows, rows == 1 ? "" : "s"),
                 std::string(inputs_[other].origin),
                 mayHaveOneRow ? "; a value in memory must have one row" : ""});
    }
  }
  raiseStep("KALVEX:array:NeedsRows", {std::string(label_)});
}

bool StepInputs::hasUnknown() const {
  for (std::size_t input = 0; input < size(); ++input) {
    if (!isValue(input) && array(input).type() == ElementType::Unknown) {
      return true;
    }
  }
  return false;
}

std::vector<ArrayOperand> StepInputs::operands() const {
  std::vector<ArrayOperand> operands;
  for (std::size_t input = 0; input < size(); ++input) {
    const Chunk& rows = isValue(input) ? value(input).rows : array(input);
    operands.push_back({&rows, isValue(input), inputs_[input].origin});
  }
  return operands;
}

std::vector<FunctionInput> StepInputs::functionInputs(std::size_t first) const {
  std::vector<FunctionInput> inputs;
  for (std::size_t input = first; input < size(); ++input) {
    if (isValue(input)) {
      inputs.push_back({std::nullopt, inputs_[input].valueNumber});
    } else {
      inputs.push_back({array(input)});
    }
  }
  return inputs;
}

}  // namespace kv::runtime

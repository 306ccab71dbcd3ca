
#include <algorithm>
#include <cstddef>
#include <cstring>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "column/allocate.h"
#include "column/elementTypes.h"
#include "kernel/BlockInput.h"
#include "kernel/choice.h"
#include "kernel/constants.h"
#include "kv/errors/StepError.h"
#include "kv/runtime/ElementFunctions.h"

namespace kv::runtime {

namespace {

void checkRows(const ElementFunction& function, const Operand& input, std::int64_t expected) {
  const std::int64_t rows = input.column.rows();
  if (rows == expected) {
    return;
  }
  errors::raiseStep("KALVEX:function:RowCounts",
                    {std::string(function.name), std::to_string(expected), std::to_string(rows)});
}

Spread spreadOf(std::span<const BlockInput> inputs) {
  if (inputs.size() < 2 || inputs[0].isScalar() == inputs[1].isScalar()) {
    return Spread::None;
  }
  return inputs[0].isScalar() ? Spread::Left : Spread::Right;
}

void runBlocks(BlockFunction function, std::span<BlockInput> inputs, std::size_t rows,
               std::size_t resultWidth, std::uint8_t* output) {
  for (std::size_t first = 0; first < rows; first += kBlockElements) {
    const std::size_t count = std::min(kBlockElements, rows - first);
    const void* left = inputs[0].block(first, count);
    const void* right = inputs.size() > 1 ? inputs[1].block(first, count) : nullptr;
    function(left, right, output + first * resultWidth, count);
  }
}

/// Copies the first element to all rows.
void spreadFirst(std::uint8_t* output, std::size_t width, std::size_t rows) {
  for (std::size_t row = 1; row < rows; ++row) {
    std::memcpy(output + row * width, output, width);
  }
}

void evaluateNumbers(const ElementFunction& function, std::span<const Operand> operands,
                     ElementType compute, std::size_t resultWidth, std::size_t rows,
                     std::uint8_t* output) {
  std::vector<BlockInput> inputs;
  inputs.reserve(operands.size());
  for (const Operand& operand : operands) {
    inputs.emplace_back(operand, compute);
  }
  const bool allScalar = std::ranges::all_of(inputs, &BlockInput::isScalar);
  const BlockFunction blocks = blockFunction(function, compute, spreadOf(inputs));
  runBlocks(blocks, inputs, allScalar ? std::min<std::size_t>(rows, 1) : rows, resultWidth, output);
  if (allScalar) {
    spreadFirst(output, resultWidth, rows);
  }
}

bool isMissing(const Operand& operand) { return operand.column.isMissing(); }

/// NaN instead of a missing integer or logical, for functions that test for missing values.
std::vector<Operand> withNaNs(std::span<const Operand> inputs) {
  std::vector<Operand> replaced(inputs.begin(), inputs.end());
  for (Operand& input : replaced) {
    if (isMissing(input)) {
      input.column = missingColumn(ElementType::Double, input.column.rows());
    }
  }
  return replaced;
}

Column evaluateChoice(const ElementFunction& function, std::span<const Operand> inputs,
                      ElementType type, std::int64_t rows) {
  if (type == ElementType::String) {
    return chooseTexts(inputs[0], inputs[1], inputs[2], rows);
  }
  if (isFloating(type)) {
    const std::vector<Operand> sides = withNaNs(inputs.subspan(1));
    return chooseNumbers(inputs[0], sides[0], sides[1], type, rows);
  }
  const bool isOneMissing = isMissing(inputs[1]);
  if (isOneMissing == isMissing(inputs[2])) {
    return isOneMissing ? missingColumn(type, rows)
                        : chooseNumbers(inputs[0], inputs[1], inputs[2], type, rows);
  }
  const std::uint8_t takesMissing = isOneMissing ? 1 : 0;
  const auto conditions = inputs[0].column.values<std::uint8_t>();
  if (std::ranges::find(conditions, takesMissing) == conditions.end()) {
    const Operand& other = inputs[isOneMissing ? 2 : 1];
    return chooseNumbers(inputs[0], other, other, type, rows);
  }
  if (inputs[0].isScalar) {
    return missingColumn(type, rows);
  }
  const std::string name(elementTypeName(type));
  errors::raiseStep("KALVEX:function:MissingChoice", {std::string(function.name), name});
}

/// The result for a missing input; empty if the blocks can compute with all inputs.
std::optional<Column> missingAnswer(const ElementFunction& function,
                                    std::span<const Operand> inputs, ElementType result,
                                    std::int64_t rows) {
  if (std::ranges::none_of(inputs, isMissing)) {
    return std::nullopt;
  }
  if (function.rule == TypeRule::Class) {
    return evaluate(function, withNaNs(inputs), rows);
  }
  const bool choosesSides = function.rule == TypeRule::Choice && !isMissing(inputs[0]);
  return choosesSides ? std::nullopt : std::optional(missingColumn(result, rows));
}

}  // namespace

Column evaluate(const ElementFunction& function, std::span<const Operand> written,
                std::int64_t rows) {
  const std::vector<Operand> inputs = adaptConstants(function, written);
  std::vector<OperandType> types;
  for (const Operand& input : inputs) {
    checkRows(function, input, input.isScalar ? 1 : rows);
    types.push_back({input.column.type()});
  }
  const Signature signature = resolve(function, types);
  if (auto answer = missingAnswer(function, inputs, signature.result, rows)) {
    return *answer;
  }
  if (function.rule == TypeRule::Choice) {
    return evaluateChoice(function, inputs, signature.result, rows);
  }
  const std::size_t width = elementSize(signature.result);
  auto buffer = allocateBuffer(rows * static_cast<std::int64_t>(width));
  if (signature.compute == ElementType::String) {
    function.text(inputs, rows, buffer->mutable_data());
  } else {
    if (function.rule == TypeRule::Power && isInteger(signature.compute) && rows > 0) {
      refuseNegativePowers(function, inputs[1].column);
    }
    evaluateNumbers(function, inputs, signature.compute, width, static_cast<std::size_t>(rows),
                    buffer->mutable_data());
  }
  return Column(signature.result, rows, std::move(buffer));
}

}  // namespace kv::runtime

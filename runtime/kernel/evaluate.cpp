#include <algorithm>
#include <cstddef>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include "column/allocate.h"
#include "column/elementTypes.h"
#include "kernel/BlockInput.h"
#include "kernel/choice.h"
#include "kernel/constants.h"
#include "kernel/missingRows.h"
#include "kv/errors/StepError.h"
#include "kv/runtime/ElementFunctions.h"
#include "kv/runtime/times.h"

namespace kv::runtime {

namespace {

void checkRows(const ElementFunction& function, const ColumnOperand& input, std::int64_t expected) {
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

void runBlocks(BlockKernel function, std::span<BlockInput> inputs, std::size_t rows,
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

void evaluateNumbers(const ElementFunction& function, std::span<const ColumnOperand> operands,
                     ElementType compute, std::size_t resultWidth, std::size_t rows,
                     std::uint8_t* output) {
  std::vector<BlockInput> inputs;
  inputs.reserve(operands.size());
  for (const ColumnOperand& operand : operands) {
    inputs.emplace_back(operand, compute);
  }
  const bool allScalar = std::ranges::all_of(inputs, &BlockInput::isScalar);
  const BlockKernel blocks = blockKernel(function, compute, spreadOf(inputs));
  runBlocks(blocks, inputs, allScalar ? std::min<std::size_t>(rows, 1) : rows, resultWidth, output);
  if (allScalar) {
    spreadFirst(output, resultWidth, rows);
  }
}

/// Microseconds that were computed in double, in place: towards zero, and missing where they don't
/// fit.
void doublesToTimes(std::uint8_t* elements, std::int64_t rows) {
  static_assert(sizeof(double) == sizeof(std::int64_t));
  constexpr double kBeyond = 0x1p63;
  for (std::int64_t row = 0; row < rows; ++row, elements += sizeof(double)) {
    double number = 0;
    std::memcpy(&number, elements, sizeof(number));
    const bool fits = number > -kBeyond && number < kBeyond;
    const std::int64_t time = fits ? static_cast<std::int64_t>(number) : kNaT;
    std::memcpy(elements, &time, sizeof(time));
  }
}

Column choose(std::span<const ColumnOperand> inputs, ElementType type, std::int64_t rows) {
  return type == ElementType::String ? chooseTexts(inputs[0], inputs[1], inputs[2], rows)
                                     : chooseNumbers(inputs[0], inputs[1], inputs[2], type, rows);
}

Column compute(const ElementFunction& function, std::span<const ColumnOperand> inputs,
               const Signature& signature, std::int64_t rows) {
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
    if (isTime(signature.result) && signature.compute == ElementType::Double) {
      doublesToTimes(buffer->mutable_data(), rows);
    }
  }
  return Column(signature.result, rows, std::move(buffer));
}

}  // namespace

Column evaluate(const ElementFunction& function, std::span<const ColumnOperand> written,
                std::int64_t rows) {
  const std::vector<ColumnOperand> inputs = adaptConstants(function, written);
  std::vector<OperandType> types;
  for (const ColumnOperand& input : inputs) {
    checkRows(function, input, input.isScalar ? 1 : rows);
    types.push_back({input.column.type()});
  }
  const Signature signature = resolve(function, types);
  Column computed = function.rule == TypeRule::Choice ? choose(inputs, signature.result, rows)
                                                      : compute(function, inputs, signature, rows);
  const bool mayBeMissing = signature.result != ElementType::String && areNullable(inputs);
  return mayBeMissing ? withMissingRows(function, inputs, std::move(computed)) : computed;
}

}  // namespace kv::runtime

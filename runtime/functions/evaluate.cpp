#include <fmt/format.h>

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "functions/BlockInput.h"
#include "functions/allocate.h"
#include "functions/choice.h"
#include "functions/constants.h"
#include "functions/elementTypes.h"
#include "kv/runtime/ElementFunctions.h"
#include "kv/runtime/FunctionError.h"

namespace kv::runtime {

namespace {

void checkRows(const ElementFunction& function, const Operand& input, std::int64_t expected) {
  const std::int64_t rows = input.column.rows();
  if (rows == expected) return;
  throw FunctionError(
      "KALVEX:function:RowCounts",
      {std::string(function.name), std::to_string(expected), std::to_string(rows)},
      fmt::format("{} expected an input of {} rows, got {}.", function.name, expected, rows));
}

/// Brings constants to the computing type. A comparison with a constant that no element of an
/// integer type can be is still a good question: it is answered in double, which is exact there.
ElementType adaptConstants(const ElementFunction& function, std::vector<Operand>& inputs,
                           ElementType compute) {
  for (const Operand& input : inputs) {
    if (!operandType(input).isWeak || constantFits(input, compute)) continue;
    if (function.rule == TypeRule::Comparison) {
      compute = ElementType::Double;
      continue;
    }
    const std::string type(elementTypeName(compute));
    throw FunctionError("KALVEX:function:OutOfRange",
                        {std::string(function.name), constantText(input), type},
                        fmt::format("{}: the constant {} doesn't fit the type {}.", function.name,
                                    constantText(input), type));
  }
  for (Operand& input : inputs) {
    if (operandType(input).isWeak) input = constantAs(input, compute);
  }
  return compute;
}

void refuseNegativePowers(const ElementFunction& function, const Column& exponents) {
  visitNumeric(exponents.type(), [&]<class T>() {
    if constexpr (std::is_signed_v<T>) {
      const auto isNegative = [](T value) { return value < 0; };
      const auto values = exponents.values<T>();
      const auto found = std::ranges::find_if(values, isNegative);
      if (found == values.end()) return;
      throw FunctionError(
          "KALVEX:function:NegativePower", {std::string(function.name), fmt::format("{}", *found)},
          fmt::format("{}: an integer to the power of the negative integer {} is no integer; "
                      "convert one of them to double.",
                      function.name, *found));
    }
  });
}

Spread spreadOf(std::span<const BlockInput> inputs) {
  if (inputs.size() < 2 || inputs[0].isScalar() == inputs[1].isScalar()) return Spread::None;
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
  for (const Operand& operand : operands) inputs.emplace_back(operand, compute);
  const bool allScalar = std::ranges::all_of(inputs, &BlockInput::isScalar);
  const BlockFunction blocks = blockFunction(function, compute, spreadOf(inputs));
  runBlocks(blocks, inputs, allScalar ? std::min<std::size_t>(rows, 1) : rows, resultWidth, output);
  if (allScalar) spreadFirst(output, resultWidth, rows);
}

Column evaluateChoice(const ElementFunction& function, std::span<const Operand> inputs,
                      ElementType type, std::int64_t rows) {
  if (type == ElementType::String) return chooseTexts(inputs[0], inputs[1], inputs[2], rows);
  std::vector<Operand> sides(inputs.begin() + 1, inputs.end());
  adaptConstants(function, sides, type);
  return chooseNumbers(inputs[0], sides[0], sides[1], type, rows);
}

}  // namespace

Column evaluate(const ElementFunction& function, std::span<const Operand> inputs,
                std::int64_t rows) {
  std::vector<OperandType> types;
  for (const Operand& input : inputs) {
    checkRows(function, input, input.isScalar ? 1 : rows);
    types.push_back(operandType(input));
  }
  Signature signature = resolve(function, types);
  if (function.rule == TypeRule::Choice) {
    return evaluateChoice(function, inputs, signature.result, rows);
  }
  const std::size_t width = elementSize(signature.result);
  auto buffer = allocateBuffer(rows * static_cast<std::int64_t>(width));
  if (signature.compute == ElementType::String) {
    function.text(inputs, rows, buffer->mutable_data());
  } else {
    std::vector<Operand> adapted(inputs.begin(), inputs.end());
    signature.compute = adaptConstants(function, adapted, signature.compute);
    if (function.rule == TypeRule::Power && isInteger(signature.compute)) {
      refuseNegativePowers(function, adapted[1].column);
    }
    evaluateNumbers(function, adapted, signature.compute, width, static_cast<std::size_t>(rows),
                    buffer->mutable_data());
  }
  return Column(signature.result, rows, std::move(buffer));
}

}  // namespace kv::runtime

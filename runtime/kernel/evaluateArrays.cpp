#include "kernel/evaluateArrays.h"

#include <cstddef>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "column/arrays.h"
#include "kv/errors/StepError.h"

namespace kv::runtime {

namespace {

/// The input whose dimensions don't go with those of `input`: one of the inputs before it.
const ArrayOperand& opponentOf(std::span<const ArrayOperand> inputs, std::size_t input) {
  std::size_t before = 0;
  while (before + 1 < input &&
         expanded(inputs[before].array->trailing, inputs[input].array->trailing)) {
    ++before;
  }
  return inputs[before];
}

Dimensions commonDimensions(const ElementFunction& function, std::span<const ArrayOperand> inputs) {
  Dimensions common;
  for (std::size_t i = 0; i < inputs.size(); ++i) {
    std::optional<Dimensions> both = expanded(common, inputs[i].array->trailing);
    if (!both) {
      const ArrayOperand& other = opponentOf(inputs, i);
      errors::raiseStep("KALVEX:array:SizesDiffer",
                        {std::string(function.name), describeSize(other.array->trailing),
                         std::string(other.origin), describeSize(inputs[i].array->trailing),
                         std::string(inputs[i].origin)});
    }
    common = *std::move(both);
  }
  return common;
}

}  // namespace

Chunk evaluateArrays(const ElementFunction& function, std::span<const ArrayOperand> inputs,
                     std::int64_t rows) {
  Chunk result{.ordinals = RowOrdinals(0, rows), .trailing = commonDimensions(function, inputs)};
  std::vector<std::vector<std::size_t>> columnsOfInputs;
  for (const ArrayOperand& input : inputs) {
    columnsOfInputs.push_back(expandedColumns(input.array->trailing, result.trailing));
  }
  const std::size_t numColumns = columnsIn(result.trailing);
  for (std::size_t column = 0; column < numColumns; ++column) {
    std::vector<ColumnOperand> operands;
    for (std::size_t i = 0; i < inputs.size(); ++i) {
      operands.push_back(
          {inputs[i].array->columns[columnsOfInputs[i][column]], inputs[i].isScalar});
    }
    result.columns.push_back(evaluate(function, operands, rows));
  }
  return result;
}

}  // namespace kv::runtime

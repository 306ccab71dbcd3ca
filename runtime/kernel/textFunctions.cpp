#include <algorithm>
#include <functional>

#include "column/TextView.h"
#include "kernel/elementBlocks.h"

namespace kv::runtime {

namespace {

template <class Compare, bool kOfMissing = false>
void compareTexts(std::span<const ColumnOperand> inputs, std::int64_t rows, std::uint8_t* output) {
  const TextView left(inputs[0].column);
  const TextView right(inputs[1].column);
  const std::int64_t leftStep = inputs[0].isScalar ? 0 : 1;
  const std::int64_t rightStep = inputs[1].isScalar ? 0 : 1;
  for (std::int64_t row = 0; row < rows; ++row) {
    const std::int64_t i = row * leftStep;
    const std::int64_t j = row * rightStep;
    const bool isMissing = left.isMissing(i) || right.isMissing(j);
    output[row] = isMissing ? kOfMissing : Compare()(left[i], right[j]);
  }
}

}  // namespace

void textEq(std::span<const ColumnOperand> inputs, std::int64_t rows, std::uint8_t* output) {
  compareTexts<std::equal_to<>>(inputs, rows, output);
}

void textNe(std::span<const ColumnOperand> inputs, std::int64_t rows, std::uint8_t* output) {
  compareTexts<std::not_equal_to<>>(inputs, rows, output);
}

void textDiffers(std::span<const ColumnOperand> inputs, std::int64_t rows, std::uint8_t* output) {
  compareTexts<std::not_equal_to<>, true>(inputs, rows, output);
}

void textLt(std::span<const ColumnOperand> inputs, std::int64_t rows, std::uint8_t* output) {
  compareTexts<std::less<>>(inputs, rows, output);
}

void textLe(std::span<const ColumnOperand> inputs, std::int64_t rows, std::uint8_t* output) {
  compareTexts<std::less_equal<>>(inputs, rows, output);
}

void textGt(std::span<const ColumnOperand> inputs, std::int64_t rows, std::uint8_t* output) {
  compareTexts<std::greater<>>(inputs, rows, output);
}

void textGe(std::span<const ColumnOperand> inputs, std::int64_t rows, std::uint8_t* output) {
  compareTexts<std::greater_equal<>>(inputs, rows, output);
}

void textIsMissing(std::span<const ColumnOperand> inputs, std::int64_t rows, std::uint8_t* output) {
  const TextView texts(inputs[0].column);
  const std::int64_t step = inputs[0].isScalar ? 0 : 1;
  for (std::int64_t row = 0; row < rows; ++row) {
    output[row] = texts.isMissing(row * step);
  }
}

}  // namespace kv::runtime

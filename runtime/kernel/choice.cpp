// A choice reads two inputs and a condition, any of which may be a scalar or have another type than
// the result. Inputs are converted and repeated block by block into small buffers, so that a single
// loop per type serves all combinations.

#include "kernel/choice.h"

#include <arrow/array/builder_binary.h>

#include <algorithm>
#include <cassert>
#include <cstddef>
#include <cstring>
#include <memory>
#include <string_view>
#include <utility>
#include <vector>

#include "column/TextView.h"
#include "column/allocate.h"
#include "column/elementTypes.h"
#include "column/pool.h"
#include "kernel/BlockInput.h"

namespace kv::runtime {

namespace {

/// An input whose scalar is repeated over a block, so that one loop serves every mix of scalars.
class SpreadInput {
 public:
  SpreadInput(const ColumnOperand& operand, ElementType type) : input_(operand, type) {
    if (!input_.isScalar()) {
      return;
    }
    const std::size_t width = elementSize(type);
    spread_.resize(kBlockElements * width);
    for (std::size_t i = 0; i < kBlockElements; ++i) {
      std::memcpy(spread_.data() + i * width, input_.block(0, 1), width);
    }
  }

  template <class T>
  const T* block(std::size_t first, std::size_t count) {
    return static_cast<const T*>(spread_.empty() ? input_.block(first, count) : spread_.data());
  }

 private:
  BlockInput input_;
  std::vector<std::byte> spread_;
};

/// Whether the elements of a side can be those of a result; a constant that was written adapts.
[[maybe_unused]] bool becomes(const ColumnOperand& side, ElementType type) {
  const ElementType own = side.column.type();
  return side.isWeak || own == type ||
         (isNumeric(own) && isNumeric(type) && promoteTypes(own, type) == type);
}

template <class T>
void chooseLoop(const std::uint8_t* __restrict condition, const T* __restrict chosen,
                const T* __restrict other, T* __restrict output, std::size_t count) {
  for (std::size_t i = 0; i < count; ++i) {
    output[i] = condition[i] ? chosen[i] : other[i];
  }
}

/// Texts of an input by row.
struct Texts {
  explicit Texts(const ColumnOperand& operand)
      : view(operand.column), step(operand.isScalar ? 0 : 1) {}

  bool isMissing(std::int64_t row) const { return view.isMissing(row * step); }
  std::string_view at(std::int64_t row) const { return view[row * step]; }

  TextView view;
  std::int64_t step;
};

}  // namespace

Column chooseNumbers(const ColumnOperand& condition, const ColumnOperand& chosen,
                     const ColumnOperand& other, ElementType type, std::int64_t rows) {
  assert(condition.column.type() == ElementType::Logical);
  assert(becomes(chosen, type) && becomes(other, type));
  auto buffer = allocateBuffer(rows * static_cast<std::int64_t>(elementSize(type)));
  SpreadInput conditions(condition, ElementType::Logical);
  SpreadInput left(chosen, type);
  SpreadInput right(other, type);
  visitNumeric(type, [&]<class T>() {
    const auto all = static_cast<std::size_t>(rows);
    for (std::size_t first = 0; first < all; first += kBlockElements) {
      const std::size_t count = std::min(kBlockElements, all - first);
      chooseLoop(conditions.block<std::uint8_t>(first, count), left.block<T>(first, count),
                 right.block<T>(first, count), buffer->mutable_data_as<T>() + first, count);
    }
  });
  return Column(type, rows, std::move(buffer));
}

Column chooseTexts(const ColumnOperand& condition, const ColumnOperand& chosen,
                   const ColumnOperand& other, std::int64_t rows) {
  assert(condition.column.type() == ElementType::Logical);
  const auto conditions = condition.column.values<std::uint8_t>();
  const std::size_t step = condition.isScalar ? 0 : 1;
  const Validity known(condition.column);
  const Texts left(chosen);
  const Texts right(other);
  arrow::StringBuilder builder(currentPool());
  checkArrow(builder.Reserve(rows));
  for (std::int64_t row = 0; row < rows; ++row) {
    const std::size_t at = static_cast<std::size_t>(row) * step;
    const Texts& side = conditions[at] != 0 ? left : right;
    const bool isMissing = known.isNull(static_cast<std::int64_t>(at)) || side.isMissing(row);
    checkArrow(isMissing ? builder.AppendNull() : builder.Append(side.at(row)));
  }
  std::shared_ptr<arrow::ArrayData> data;
  checkArrow(builder.FinishInternal(&data));
  return Column(ElementType::String, std::move(data));
}

}  // namespace kv::runtime

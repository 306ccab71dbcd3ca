// Blocks compute all rows as if none were missing, which costs nothing where none is. If an input
// has nulls, its rows in the result are corrected afterwards, by one of four rules: `isnan` and the
// like have an answer, a choice takes the null of the side that it chooses, `and` and `or` are
// three-valued, and for every other function one null makes the row missing.

#include "kernel/missingRows.h"

#include <arrow/array/data.h>
#include <arrow/buffer.h>

#include <algorithm>
#include <cassert>
#include <concepts>
#include <cstddef>
#include <limits>
#include <utility>
#include <vector>

#include "column/Validity.h"
#include "column/elementTypes.h"
#include "kernel/blockCasts.h"
#include "kv/runtime/times.h"

namespace kv::runtime {

namespace {

/// The nulls of an input by row.
class InputNulls {
 public:
  explicit InputNulls(const ColumnOperand& operand)
      : validity_(operand.column), step_(operand.isScalar ? 0 : 1) {}

  bool isNull(std::int64_t row) const { return validity_.isNull(row * step_); }

 private:
  Validity validity_;
  std::int64_t step_;
};

/// The truth of an input by row: any value but zero is true.
class InputTruth {
 public:
  explicit InputTruth(const ColumnOperand& operand)
      : nulls_(operand),
        step_(operand.isScalar ? 0 : 1),
        truths_(static_cast<std::size_t>(operand.column.rows())) {
    visitNumeric(operand.column.type(), [&]<class T>() {
      std::ranges::transform(operand.column.values<T>(), truths_.begin(),
                             [](T value) { return static_cast<std::uint8_t>(value != 0); });
    });
  }

  bool isNull(std::int64_t row) const { return nulls_.isNull(row); }
  bool is(bool value, std::int64_t row) const {
    return !isNull(row) && (truths_[static_cast<std::size_t>(row * step_)] != 0) == value;
  }

 private:
  InputNulls nulls_;
  std::int64_t step_;
  std::vector<std::uint8_t> truths_;
};

/// The computed elements with nulls, NaN or kNaT in the rows for which `isNull(row)`.
Column nulled(Column computed, auto&& isNull) {
  const auto& elements = computed.data()->buffers[1];
  if (isWhole(computed.type())) {
    return nullableColumn(computed.type(), computed.rows(), elements,
                          nullBits(computed.rows(), isNull));
  }
  visitNumeric(computed.type(), [&]<class T>() {
    T* values = elements->mutable_data_as<T>();
    T missing = std::numeric_limits<T>::quiet_NaN();
    if constexpr (std::same_as<T, std::int64_t>) {
      missing = kNaT;
    }
    for (std::int64_t row = 0; row < computed.rows(); ++row) {
      values[row] = isNull(row) ? missing : values[row];
    }
  });
  return computed;
}

/// What the function answers for NaN, in the rows that are missing.
Column answeredAsNaN(const ElementFunction& function, const ColumnOperand& input, Column computed) {
  const ColumnOperand nan{missingColumn(ElementType::Double, 1), true};
  const Column answer = evaluate(function, {&nan, 1}, 1);
  const InputNulls nulls(input);
  auto* answers = computed.data()->buffers[1]->mutable_data_as<std::uint8_t>();
  for (std::int64_t row = 0; row < computed.rows(); ++row) {
    answers[row] = nulls.isNull(row) ? answer.values<std::uint8_t>()[0] : answers[row];
  }
  return computed;
}

Column chosen(std::span<const ColumnOperand> inputs, Column computed) {
  const InputTruth condition(inputs[0]);
  const InputNulls sides[] = {InputNulls(inputs[1]), InputNulls(inputs[2])};
  return nulled(std::move(computed), [&](std::int64_t row) {
    return condition.isNull(row) || sides[condition.is(true, row) ? 0 : 1].isNull(row);
  });
}

/// Of two logical values, one of which may decide alone.
Column decided(bool deciding, std::span<const ColumnOperand> inputs, Column computed) {
  const InputTruth left(inputs[0]);
  const InputTruth right(inputs[1]);
  auto* values = computed.data()->buffers[1]->mutable_data_as<std::uint8_t>();
  return nulled(std::move(computed), [&](std::int64_t row) {
    const bool isDecided = left.is(deciding, row) || right.is(deciding, row);
    values[row] = isDecided ? static_cast<std::uint8_t>(deciding) : values[row];
    return !isDecided && (left.isNull(row) || right.isNull(row));
  });
}

}  // namespace

bool areNullable(std::span<const ColumnOperand> inputs) {
  return std::ranges::any_of(inputs, &Column::isNullable, &ColumnOperand::column);
}

Column withMissingRows(const ElementFunction& function, std::span<const ColumnOperand> inputs,
                       Column computed) {
  assert(areNullable(inputs) && computed.type() != ElementType::String);
  const auto isMissingSome = [](const ColumnOperand& input) {
    return input.column.isNullable() && input.column.hasNulls();
  };
  if (std::ranges::none_of(inputs, isMissingSome)) {
    return function.rule == TypeRule::Class ? computed : computed.asNullable();
  }
  if (function.rule == TypeRule::Class) {
    return answeredAsNaN(function, inputs[0], std::move(computed));
  }
  if (function.rule == TypeRule::Choice) {
    return chosen(inputs, std::move(computed));
  }
  if (function.deciding != Deciding::None) {
    return decided(function.deciding == Deciding::True, inputs, std::move(computed));
  }
  const std::vector<InputNulls> nulls(inputs.begin(), inputs.end());
  return nulled(std::move(computed), [&](std::int64_t row) {
    return std::ranges::any_of(nulls, [row](const InputNulls& input) { return input.isNull(row); });
  });
}

}  // namespace kv::runtime

// Arrow's Grouper numbers keys fast, but takes -0 and 0, and each bit pattern of NaN, for keys of
// their own. So columns get one form before they reach it.

#include "exchange/GroupKeys.h"

#include <arrow/array/array_base.h>
#include <arrow/array/data.h>
#include <arrow/array/util.h>
#include <arrow/compute/api_vector.h>
#include <arrow/compute/exec.h>
#include <arrow/compute/initialize.h>
#include <arrow/compute/row/grouper.h>
#include <arrow/type.h>

#include <algorithm>
#include <cassert>
#include <cmath>
#include <limits>
#include <optional>
#include <utility>

#include "column/Validity.h"
#include "column/allocate.h"
#include "column/elementTypes.h"
#include "column/pool.h"
#include "kv/runtime/times.h"

namespace kv::runtime {

namespace {

namespace compute = arrow::compute;

compute::ExecContext contextOfThread() {
  compute::ExecContext context(currentPool());
  context.set_use_threads(false);
  return context;
}

template <class T>
Column canonicalFloats(const Column& column) {
  const auto isOther = [](T value) {
    return value != value || (value == 0 && std::signbit(value));
  };
  const auto values = column.values<T>();
  if (std::ranges::none_of(values, isOther)) {
    return column;
  }
  auto buffer = allocateBuffer(static_cast<std::int64_t>(values.size_bytes()));
  std::ranges::transform(values, buffer->mutable_data_as<T>(), [](T value) {
    return value != value ? std::numeric_limits<T>::quiet_NaN() : value + T{0};
  });
  return {column.type(), column.rows(), std::move(buffer)};
}

/// A column as sorting wants it: what is missing is a null.
std::shared_ptr<arrow::Array> sortable(const Column& column) {
  if (!isTime(column.type())) {
    return arrow::MakeArray(column.data());
  }
  const auto times = column.values<std::int64_t>();
  NullBits nulls = nullBits(column.rows(), [&](std::int64_t row) {
    return times[static_cast<std::size_t>(row)] == kNaT;
  });
  const auto elements =
      arrow::ArrayData::Make(arrow::int64(), column.rows(), {nullptr, column.data()->buffers[1]}, 0,
                             column.data()->offset);
  if (nulls.count == 0) {
    return arrow::MakeArray(elements);
  }
  auto buffer = allocateBuffer(column.rows() * static_cast<std::int64_t>(sizeof(std::int64_t)));
  std::ranges::copy(times, buffer->mutable_data_as<std::int64_t>());
  return arrow::MakeArray(arrow::ArrayData::Make(
      arrow::int64(), column.rows(), {std::move(nulls.bits), std::move(buffer)}, nulls.count));
}

/// The columns as Arrow's table takes them.
compute::ExecBatch canonicalBatch(const std::vector<Column>& columns,
                                  [[maybe_unused]] const std::vector<ElementType>& types) {
  assert(columns.size() == types.size());
  compute::ExecBatch batch({}, columns.front().rows());
  for (std::size_t i = 0; i < columns.size(); ++i) {
    assert(columns[i].type() == types[i] && columns[i].rows() == columns.front().rows());
    batch.values.emplace_back(canonicalKeys(columns[i]).data());
  }
  return batch;
}

void initializeArrow() {
  static const arrow::Status status = compute::Initialize();
  checkArrow(status);
}

}  // namespace

GroupKeys::GroupKeys(std::vector<ElementType> types)
    : types_(std::move(types)),
      isNullable_(types_.size(), false),
      context_(std::make_unique<compute::ExecContext>(contextOfThread())) {
  assert(!types_.empty());
  initializeArrow();
  std::vector<arrow::TypeHolder> arrowTypes;
  for (const ElementType type : types_) {
    assert(type != ElementType::Unknown);
    arrowTypes.emplace_back(arrowTypeOf(type));
  }
  grouper_ = checkArrow(compute::Grouper::Make(arrowTypes, context_.get()));
}

GroupKeys::~GroupKeys() = default;
GroupKeys::GroupKeys(GroupKeys&&) noexcept = default;
GroupKeys& GroupKeys::operator=(GroupKeys&&) noexcept = default;

std::int64_t GroupKeys::size() const { return grouper_->num_groups(); }

std::span<const std::uint32_t> GroupKeys::numbersOf(const std::vector<Column>& columns) {
  for (std::size_t i = 0; i < columns.size(); ++i) {
    isNullable_[i] = isNullable_[i] || columns[i].isNullable();
  }
  const compute::ExecBatch batch = canonicalBatch(columns, types_);
  if (batch.length == 0) {
    return {};
  }
  numbers_ = checkArrow(grouper_->Consume(compute::ExecSpan(batch)));
  return {numbers_.array()->GetValues<std::uint32_t>(1), static_cast<std::size_t>(batch.length)};
}

std::vector<std::uint32_t> GroupKeys::find(const std::vector<Column>& columns) {
  const compute::ExecBatch batch = canonicalBatch(columns, types_);
  std::vector<std::uint32_t> numbers(static_cast<std::size_t>(batch.length), kUnknown);
  if (size() > 0 && batch.length > 0) {
    const arrow::Datum found = checkArrow(grouper_->Lookup(compute::ExecSpan(batch)));
    const Column column(ElementType::UInt32, found.array());
    const Validity validity(column);
    const auto values = column.values<std::uint32_t>();
    for (std::size_t row = 0; row < numbers.size(); ++row) {
      numbers[row] = validity.isNull(static_cast<std::int64_t>(row)) ? kUnknown : values[row];
    }
  }
  return numbers;
}

std::vector<Column> GroupKeys::keys() const {
  const compute::ExecBatch batch = checkArrow(grouper_->GetUniques());
  std::vector<Column> columns;
  for (std::size_t i = 0; i < types_.size(); ++i) {
    auto data = batch.values[i].array();
    if (data->GetNullCount() == 0) {
      data = data->Copy();
      data->buffers[0] = nullptr;
    }
    const Column column(types_[i], std::move(data));
    columns.push_back(isNullable_[i] ? column.asNullable() : column);
  }
  return columns;
}

Column canonicalKeys(const Column& column) {
  return column.type() == ElementType::Double   ? canonicalFloats<double>(column)
         : column.type() == ElementType::Single ? canonicalFloats<float>(column)
                                                : column;
}

/// Sorting is stable, so the first column comes last.
Column ascendingOrder(const std::vector<Column>& columns) {
  assert(!columns.empty());
  initializeArrow();
  compute::ExecContext context = contextOfThread();
  std::optional<Column> order;
  for (auto column = columns.rbegin(); column != columns.rend(); ++column) {
    assert(column->rows() == columns.front().rows());
    const Column rows = order ? takeRows(*column, *order) : *column;
    const auto places = checkArrow(
        compute::SortIndices(*sortable(rows), compute::ArraySortOptions::Defaults(), &context));
    const Column next(ElementType::UInt64, places->data());
    order = order ? takeRows(*order, next) : next;
  }
  return *order;
}

Column takeRows(const Column& column, const Column& places) {
  initializeArrow();
  compute::ExecContext context = contextOfThread();
  const arrow::Datum taken =
      checkArrow(compute::Take(arrow::Datum(column.data()), arrow::Datum(places.data()),
                               compute::TakeOptions::NoBoundsCheck(), &context));
  auto data = taken.array();
  if (data->GetNullCount() == 0 && data->buffers[0] != nullptr) {
    data = data->Copy();
    data->buffers[0] = nullptr;
  }
  const Column rows(column.type(), std::move(data));
  return column.isNullable() ? rows.asNullable() : rows;
}

}  // namespace kv::runtime

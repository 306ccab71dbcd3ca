#include "kv/runtime/exportedData.h"

#include <arrow/array/data.h>
#include <arrow/buffer.h>
#include <arrow/type.h>
#include <arrow/util/bit_util.h>

#include <algorithm>
#include <utility>

#include "column/allocate.h"
#include "column/elementTypes.h"
#include "kv/runtime/times.h"

namespace kv::runtime {

namespace {

using Data = std::shared_ptr<arrow::ArrayData>;

/// A bitmap of the rows for which `isSet` is true.
template <class IsSet>
std::shared_ptr<arrow::Buffer> bitsOf(std::int64_t rows, const IsSet& isSet) {
  auto bits = allocateBuffer(arrow::bit_util::BytesForBits(rows));
  std::uint8_t* bytes = bits->mutable_data();
  for (std::int64_t row = 0; row < rows; row += 8) {
    std::uint8_t byte = 0;
    for (std::int64_t bit = 0; bit < std::min<std::int64_t>(8, rows - row); ++bit) {
      byte = static_cast<std::uint8_t>(byte | (isSet(row + bit) ? 1U << bit : 0U));
    }
    bytes[row / 8] = byte;
  }
  return bits;
}

Data logicals(const Column& column) {
  const auto values = column.values<std::uint8_t>();
  const std::int64_t rows = column.rows();
  std::shared_ptr<arrow::Buffer> validity;
  if (column.hasNulls()) {
    validity = bitsOf(rows, [&](std::int64_t row) { return !column.isNull(row); });
  }
  auto bits =
      bitsOf(rows, [&](std::int64_t row) { return values[static_cast<std::size_t>(row)] != 0; });
  return arrow::ArrayData::Make(arrow::boolean(), rows, {std::move(validity), std::move(bits)});
}

Data times(const Column& column) {
  const auto values = column.values<std::int64_t>();
  const bool hasMissing = std::ranges::find(values, kNaT) != values.end();
  const Data& data = column.data();
  std::shared_ptr<arrow::Buffer> validity;
  if (!hasMissing) {
    return arrow::ArrayData::Make(data->type, data->length, {nullptr, data->buffers[1]}, 0,
                                  data->offset);
  }
  validity = bitsOf(column.rows() + data->offset, [&](std::int64_t row) {
    return row >= data->offset && values[static_cast<std::size_t>(row - data->offset)] != kNaT;
  });
  return arrow::ArrayData::Make(data->type, data->length, {std::move(validity), data->buffers[1]},
                                arrow::kUnknownNullCount, data->offset);
}

}  // namespace

std::shared_ptr<arrow::DataType> exportedTypeOf(ElementType type) {
  return type == ElementType::Logical ? arrow::boolean() : arrowTypeOf(type);
}

std::shared_ptr<arrow::ArrayData> exportedData(const Column& column) {
  if (column.type() == ElementType::Logical) {
    return logicals(column);
  }
  return isTime(column.type()) ? times(column) : column.data();
}

}  // namespace kv::runtime

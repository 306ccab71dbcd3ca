// The table of element types, and columns as handles to Arrow's arrays. Arrow has no logical type
// of one byte per element, so logical columns are uint8 arrays there.

#include "kv/runtime/Column.h"

#include <arrow/array/array_base.h>
#include <arrow/array/data.h>
#include <arrow/array/util.h>
#include <arrow/buffer.h>
#include <arrow/result.h>
#include <arrow/scalar.h>
#include <arrow/type.h>
#include <arrow/type_fwd.h>
#include <arrow/util/bit_util.h>

#include <algorithm>
#include <array>
#include <cassert>
#include <limits>
#include <new>
#include <utility>
#include <vector>

#include "column/elementTypes.h"
#include "column/pool.h"
#include "kv/runtime/times.h"

namespace kv::runtime {

namespace {

struct TypeRow {
  std::string_view name;
  std::size_t size;
  const std::shared_ptr<arrow::DataType>& (*arrowType)();
};

const std::shared_ptr<arrow::DataType>& microseconds() {
  static const auto type = arrow::timestamp(arrow::TimeUnit::MICRO);
  return type;
}

const std::shared_ptr<arrow::DataType>& durations() {
  static const auto type = arrow::duration(arrow::TimeUnit::MICRO);
  return type;
}

/// Indexed by ElementType. A Logical column is a run of bytes, which Arrow calls uint8.
constexpr std::array kTypes{
    TypeRow{"logical", 1, &arrow::uint8},   TypeRow{"double", 8, &arrow::float64},
    TypeRow{"single", 4, &arrow::float32},  TypeRow{"int8", 1, &arrow::int8},
    TypeRow{"uint8", 1, &arrow::uint8},     TypeRow{"int16", 2, &arrow::int16},
    TypeRow{"uint16", 2, &arrow::uint16},   TypeRow{"int32", 4, &arrow::int32},
    TypeRow{"uint32", 4, &arrow::uint32},   TypeRow{"int64", 8, &arrow::int64},
    TypeRow{"uint64", 8, &arrow::uint64},   TypeRow{"string", 0, &arrow::utf8},
    TypeRow{"unknown", 8, &arrow::float64}, TypeRow{"datetime", 8, &microseconds},
    TypeRow{"duration", 8, &durations},
};

/// All but Unknown.
constexpr auto kDataTypes = [] {
  std::array<ElementType, kTypes.size() - 1> all{};
  std::size_t next = 0;
  for (std::size_t i = 0; i < kTypes.size(); ++i) {
    if (static_cast<ElementType>(i) != ElementType::Unknown) {
      all[next++] = static_cast<ElementType>(i);
    }
  }
  return all;
}();

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();

const TypeRow& rowOf(ElementType type) { return kTypes[static_cast<std::size_t>(type)]; }

/// Bytes of the validity bitmap; 0 if the column has none.
std::int64_t bitmapBytes(const arrow::ArrayData& data) {
  return data.buffers[0] ? arrow::bit_util::BytesForBits(data.length) : 0;
}

}  // namespace

std::string_view elementTypeName(ElementType type) { return rowOf(type).name; }

std::optional<ElementType> elementTypeNamed(std::string_view name) {
  const auto* found = std::ranges::find(kDataTypes, name, elementTypeName);
  return found == kDataTypes.end() ? std::nullopt : std::optional(*found);
}

std::span<const ElementType> allElementTypes() { return kDataTypes; }

std::size_t elementSize(ElementType type) { return rowOf(type).size; }

const std::shared_ptr<arrow::DataType>& arrowTypeOf(ElementType type) {
  return rowOf(type).arrowType();
}

Column::Column(ElementType type, std::shared_ptr<arrow::ArrayData> data)
    : type_(type), isNullable_(isWhole(type) && data->buffers[0]), data_(std::move(data)) {
  assert(data_->buffers.size() == (type == ElementType::String ? 3U : 2U));
}

Column::Column(ElementType type, std::int64_t rows, std::shared_ptr<arrow::Buffer> buffer)
    : type_(type),
      data_(arrow::ArrayData::Make(arrowTypeOf(type), rows, {nullptr, std::move(buffer)},
                                   /*null_count=*/0)) {
  assert(type != ElementType::String);
  assert(type != ElementType::Unknown || rows == 0);
  assert(data_->buffers[1]->size() >= rows * static_cast<std::int64_t>(elementSize(type)));
}

std::int64_t Column::rows() const { return data_->length; }

Column Column::asNullable() const {
  Column column = *this;
  column.isNullable_ = isWhole(type_);
  return column;
}

bool Column::hasNulls() const { return data_->buffers[0] && data_->GetNullCount() > 0; }

bool Column::isNull(std::int64_t row) const {
  assert(row >= 0 && row < rows());
  const auto bit = static_cast<std::uint64_t>(data_->offset + row);
  return data_->buffers[0] && !arrow::bit_util::GetBit(data_->buffers[0]->data(), bit);
}

std::string_view Column::text(std::int64_t row) const {
  if (isNull(row)) {
    return {};
  }
  const auto* offsets = data_->GetValues<std::int32_t>(1);
  if (offsets[row] == offsets[row + 1]) {
    return {};
  }
  const auto* bytes = data_->buffers[2]->data_as<char>();
  return {bytes + offsets[row], static_cast<std::size_t>(offsets[row + 1] - offsets[row])};
}

Column Column::slice(std::int64_t first, std::int64_t count) const {
  assert(first >= 0 && count >= 0 && first + count <= rows());
  if (first == 0 && count == rows()) {
    return *this;
  }
  Column part(type_, data_->Slice(first, count));
  part.isNullable_ = isNullable_;
  return part;
}

std::int64_t Column::byteSize() const {
  if (type_ != ElementType::String) {
    return data_->length * static_cast<std::int64_t>(elementSize(type_)) + bitmapBytes(*data_);
  }
  if (data_->length == 0) {
    return 0;
  }
  const auto* offsets = data_->GetValues<std::int32_t>(1);
  const auto offsetBytes = data_->length * static_cast<std::int64_t>(sizeof(std::int32_t));
  return offsets[data_->length] - offsets[0] + offsetBytes + bitmapBytes(*data_);
}

const void* Column::rawValues([[maybe_unused]] std::size_t width) const {
  assert(width == elementSize(type_));
  const auto skipped = static_cast<std::size_t>(data_->offset) * elementSize(type_);
  return data_->buffers[1]->data() + skipped;
}

namespace {

Column madeEmpty(ElementType type) {
  static constexpr std::int32_t kFirstOffset = 0;
  const auto noBytes = std::make_shared<arrow::Buffer>(nullptr, 0);
  if (type != ElementType::String) {
    return Column(type, 0, noBytes);
  }
  auto offsets = arrow::Buffer::Wrap(&kFirstOffset, 1);
  return Column(type, arrow::ArrayData::Make(arrow::utf8(), 0, {nullptr, offsets, noBytes}, 0));
}

}  // namespace

/// Recording an operation asks for the type of each input, so these are made once.
Column emptyColumn(ElementType type) {
  static const std::vector<Column> all = [] {
    std::vector<Column> columns;
    for (std::size_t i = 0; i < kTypes.size(); ++i) {
      columns.push_back(madeEmpty(static_cast<ElementType>(i)));
    }
    return columns;
  }();
  return all[indexOf(type)];
}

Column missingColumn(ElementType type, std::int64_t rows) {
  const auto rowsOf = [rows](const arrow::Scalar& scalar) {
    return arrow::MakeArrayFromScalar(scalar, rows, currentPool());
  };
  const auto made = type == ElementType::Double   ? rowsOf(arrow::DoubleScalar(kNaN))
                    : type == ElementType::Single ? rowsOf(arrow::FloatScalar(float{kNaN}))
                    : isTime(type)                ? rowsOf(arrow::Int64Scalar(kNaT))
                                   : arrow::MakeArrayOfNull(arrowTypeOf(type), rows, currentPool());
  if (!made.ok()) {
    throw std::bad_alloc();
  }
  auto data = (*made)->data();
  data->type = arrowTypeOf(type);
  return Column(type, std::move(data));
}

}  // namespace kv::runtime

// Arrow's reader gives arrays of many types; a column has one of ours. Buffers are shared where the
// layout is the same: of integers always, of floating numbers without missing values, of texts with
// 32-bit offsets.

#include "source/arrowColumn.h"

#include <arrow/array.h>
#include <arrow/array/builder_binary.h>
#include <arrow/extension_type.h>
#include <arrow/type.h>
#include <arrow/util/bitmap_ops.h>
#include <arrow/util/decimal.h>
#include <arrow/util/float16.h>
#include <arrow/util/utf8.h>
#include <cassert>

#include <array>
#include <charconv>
#include <cstddef>
#include <limits>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "column/TextView.h"
#include "column/allocate.h"
#include "column/elementTypes.h"
#include "kv/runtime/times.h"

namespace kv::runtime {

namespace {

/// All powers of ten that are exact as doubles.
constexpr std::array kPowersOfTen{1e0,  1e1,  1e2,  1e3,  1e4,  1e5,  1e6,  1e7,
                                  1e8,  1e9,  1e10, 1e11, 1e12, 1e13, 1e14, 1e15,
                                  1e16, 1e17, 1e18, 1e19, 1e20, 1e21, 1e22};

bool isText(const arrow::DataType& type) {
  switch (type.id()) {
    case arrow::Type::STRING:
    case arrow::Type::LARGE_STRING:
    case arrow::Type::STRING_VIEW:
      return true;
    case arrow::Type::DICTIONARY:
      return isText(*static_cast<const arrow::DictionaryType&>(type).value_type());
    default:
      return false;
  }
}

/// A column of numbers: `valueAt(i)` where row i of the array has a value, otherwise NaN.
template <class T, class ValueAt>
Column floatingColumn(ElementType type, const arrow::Array& array, arrow::MemoryPool* pool,
                      const ValueAt& valueAt) {
  std::shared_ptr<arrow::Buffer> buffer = checkArrow(
      arrow::AllocateBuffer(array.length() * static_cast<std::int64_t>(sizeof(T)), pool));
  auto* values = buffer->mutable_data_as<T>();
  for (std::int64_t row = 0; row < array.length(); ++row) {
    values[row] = array.IsNull(row) ? std::numeric_limits<T>::quiet_NaN() : valueAt(row);
  }
  return Column(type, array.length(), std::move(buffer));
}

/// The same values, with NaN for missing ones.
template <class T>
Column withNaN(ElementType type, const arrow::Array& array, arrow::MemoryPool* pool) {
  const arrow::ArrayData& data = *array.data();
  if (array.null_count() == 0) {
    return Column(type, arrow::ArrayData::Make(arrowTypeOf(type), data.length,
                                               {nullptr, data.buffers[1]}, 0, data.offset));
  }
  const T* values = data.GetValues<T>(1);
  return floatingColumn<T>(type, array, pool, [=](std::int64_t row) { return values[row]; });
}

double nearestDouble(const std::string& digits) {
  double value = 0;
  std::from_chars(digits.data(), digits.data() + digits.size(), value);
  return value;
}

double nearestDouble(const arrow::Decimal128& decimal, std::int32_t scale) {
  const auto low = static_cast<std::int64_t>(decimal.low_bits());
  const bool isShort = decimal.high_bits() == (low < 0 ? -1 : 0) &&
                       static_cast<double>(low) <= kMaxExactWhole &&
                       static_cast<double>(low) >= -kMaxExactWhole;
  if (isShort && scale >= 0 && static_cast<std::size_t>(scale) < kPowersOfTen.size()) {
    // Both are exact, so the division rounds once.
    return static_cast<double>(low) / kPowersOfTen[static_cast<std::size_t>(scale)];
  }
  return nearestDouble(decimal.ToString(scale));
}

Column doubleColumn(const arrow::Array& array, arrow::MemoryPool* pool) {
  constexpr auto type = ElementType::Double;
  switch (array.type_id()) {
    case arrow::Type::DECIMAL128: {
      const auto& decimals = static_cast<const arrow::Decimal128Array&>(array);
      const auto scale = static_cast<const arrow::DecimalType&>(*array.type()).scale();
      return floatingColumn<double>(type, array, pool, [&](std::int64_t row) {
        return nearestDouble(arrow::Decimal128(decimals.GetValue(row)), scale);
      });
    }
    case arrow::Type::DECIMAL256: {
      const auto& decimals = static_cast<const arrow::Decimal256Array&>(array);
      return floatingColumn<double>(type, array, pool, [&](std::int64_t row) {
        return nearestDouble(decimals.FormatValue(row));
      });
    }
    case arrow::Type::NA:
      return missingColumn(type, array.length());
    default:
      return withNaN<double>(type, array, pool);
  }
}

Column singleColumn(const arrow::Array& array, arrow::MemoryPool* pool) {
  if (array.type_id() != arrow::Type::HALF_FLOAT) {
    return withNaN<float>(ElementType::Single, array, pool);
  }
  const auto* bits = array.data()->GetValues<std::uint16_t>(1);
  return floatingColumn<float>(ElementType::Single, array, pool, [=](std::int64_t row) {
    return arrow::util::Float16::FromBits(bits[row]).ToFloat();
  });
}

/// The unit of an array of times: `microseconds` = value * times / by.
struct TimeUnit {
  std::int64_t times = 1;
  std::int64_t by = 1;
};

TimeUnit timeUnitOf(arrow::TimeUnit::type unit) {
  switch (unit) {
    case arrow::TimeUnit::SECOND:
      return {kMicrosecondsPerSecond, 1};
    case arrow::TimeUnit::MILLI:
      return {1000, 1};
    case arrow::TimeUnit::MICRO:
      return {};
    case arrow::TimeUnit::NANO:
      break;
  }
  return {1, 1000};
}

std::optional<TimeUnit> timeUnitOf(const arrow::DataType& type) {
  switch (type.id()) {
    case arrow::Type::TIMESTAMP:
      return timeUnitOf(static_cast<const arrow::TimestampType&>(type).unit());
    case arrow::Type::DURATION:
      return timeUnitOf(static_cast<const arrow::DurationType&>(type).unit());
    case arrow::Type::DATE32:
      return TimeUnit{86'400 * kMicrosecondsPerSecond, 1};
    case arrow::Type::DATE64:
      return TimeUnit{1000, 1};
    default:
      return std::nullopt;
  }
}

/// Calls `visit` with the values of an array of times as their integers.
void visitTimes(const arrow::Array& array, auto&& visit) {
  if (array.type_id() == arrow::Type::DATE32) {
    visit(array.data()->GetValues<std::int32_t>(1));
  } else {
    visit(array.data()->GetValues<std::int64_t>(1));
  }
}

/// Shares the buffer of microseconds without missing values.
Column timeColumn(ElementType type, const arrow::Array& array, arrow::MemoryPool* pool) {
  const auto [times, by] = *timeUnitOf(*array.type());
  const arrow::ArrayData& data = *array.data();
  if (times == by && array.null_count() == 0) {
    return Column(type, arrow::ArrayData::Make(arrowTypeOf(type), data.length,
                                               {nullptr, data.buffers[1]}, 0, data.offset));
  }
  std::shared_ptr<arrow::Buffer> buffer = checkArrow(
      arrow::AllocateBuffer(data.length * static_cast<std::int64_t>(sizeof(std::int64_t)), pool));
  auto* microseconds = buffer->mutable_data_as<std::int64_t>();
  visitTimes(array, [&](const auto* values) {
    for (std::int64_t row = 0; row < data.length; ++row) {
      const std::int64_t value = array.IsNull(row) ? 0 : values[row] * times;
      const std::int64_t whole = value / by - (value % by < 0 ? 1 : 0);
      microseconds[row] = array.IsNull(row) ? kNaT : whole;
    }
  });
  return Column(type, data.length, std::move(buffer));
}

/// Arrow's logicals are bits; ours are bytes.
Column logicalColumn(const arrow::Array& array, arrow::MemoryPool* pool) {
  const arrow::ArrayData& data = *array.data();
  std::shared_ptr<arrow::Buffer> bytes = checkArrow(arrow::AllocateBuffer(data.length, pool));
  const auto& bits = static_cast<const arrow::BooleanArray&>(array);
  for (std::int64_t row = 0; row < data.length; ++row) {
    bytes->mutable_data()[row] = bits.Value(row) ? 1 : 0;
  }
  std::shared_ptr<arrow::Buffer> validity;
  if (array.null_count() > 0) {
    validity = checkArrow(
        arrow::internal::CopyBitmap(pool, data.buffers[0]->data(), data.offset, data.length));
  }
  return Column(
      ElementType::Logical,
      arrow::ArrayData::Make(arrowTypeOf(ElementType::Logical), data.length,
                             {std::move(validity), std::move(bytes)}, array.null_count()));
}

/// Without a bitmap if no value is missing, so that the column isn't nullable.
Column integerColumn(ElementType type, const arrow::Array& array) {
  const arrow::ArrayData& data = *array.data();
  return Column(type, arrow::ArrayData::Make(
                          arrowTypeOf(type), data.length,
                          {array.null_count() > 0 ? data.buffers[0] : nullptr, data.buffers[1]},
                          array.null_count(), data.offset));
}

/// `textAt(i)`: the text of row i, or none, where the array isn't null.
template <class TextAt>
Column copiedTexts(const arrow::Array& array, arrow::MemoryPool* pool, const TextAt& textAt) {
  arrow::StringBuilder texts(pool);
  checkArrow(texts.Reserve(array.length()));
  for (std::int64_t row = 0; row < array.length(); ++row) {
    const std::optional<std::string_view> text =
        array.IsNull(row) ? std::nullopt : std::optional<std::string_view>(textAt(row));
    checkArrow(text ? texts.Append(*text) : texts.AppendNull());
  }
  return Column(ElementType::String, checkArrow(texts.Finish())->data());
}

template <class Array>
Column copiedTexts(const arrow::Array& array, arrow::MemoryPool* pool) {
  const auto& texts = static_cast<const Array&>(array);
  return copiedTexts(array, pool, [&](std::int64_t row) { return texts.GetView(row); });
}

Column textColumn(const arrow::Array& array, arrow::MemoryPool* pool) {
  switch (array.type_id()) {
    case arrow::Type::LARGE_STRING:
      return copiedTexts<arrow::LargeStringArray>(array, pool);
    case arrow::Type::STRING_VIEW:
      return copiedTexts<arrow::StringViewArray>(array, pool);
    case arrow::Type::DICTIONARY: {
      const auto& encoded = static_cast<const arrow::DictionaryArray&>(array);
      const Column words = textColumn(*encoded.dictionary(), pool);
      const TextView texts(words);
      return copiedTexts(array, pool, [&](std::int64_t row) -> std::optional<std::string_view> {
        const std::int64_t word = encoded.GetValueIndex(row);
        return texts.isMissing(word) ? std::nullopt : std::optional(texts[word]);
      });
    }
    default:
      return Column(ElementType::String, array.data());
  }
}

template <class Array>
std::optional<std::int64_t> firstNotUtf8(const Array& texts) {
  static const bool ready = (arrow::util::InitializeUTF8(), true);
  for (std::int64_t row = 0; ready && row < texts.length(); ++row) {
    if (!texts.IsNull(row) && !arrow::util::ValidateUTF8(texts.GetView(row))) {
      return row;
    }
  }
  return std::nullopt;
}

}  // namespace

ElementType elementTypeOf(const arrow::DataType& type) {
  switch (type.id()) {
    case arrow::Type::EXTENSION:
      return elementTypeOf(*static_cast<const arrow::ExtensionType&>(type).storage_type());
    case arrow::Type::BOOL:
      return ElementType::Logical;
    case arrow::Type::DOUBLE:
    case arrow::Type::DECIMAL128:
    case arrow::Type::DECIMAL256:
    case arrow::Type::NA:
      return ElementType::Double;
    case arrow::Type::FLOAT:
    case arrow::Type::HALF_FLOAT:
      return ElementType::Single;
    case arrow::Type::INT8:
      return ElementType::Int8;
    case arrow::Type::UINT8:
      return ElementType::UInt8;
    case arrow::Type::INT16:
      return ElementType::Int16;
    case arrow::Type::UINT16:
      return ElementType::UInt16;
    case arrow::Type::INT32:
      return ElementType::Int32;
    case arrow::Type::UINT32:
      return ElementType::UInt32;
    case arrow::Type::INT64:
      return ElementType::Int64;
    case arrow::Type::UINT64:
      return ElementType::UInt64;
    case arrow::Type::TIMESTAMP:
    case arrow::Type::DATE32:
    case arrow::Type::DATE64:
      return ElementType::DateTime;
    case arrow::Type::DURATION:
      return ElementType::Duration;
    default:
      return isText(type) ? ElementType::String : ElementType::Unknown;
  }
}

std::string foreignTypeName(const arrow::DataType& type) {
  const ElementType read = elementTypeOf(type);
  const bool isSame = read == ElementType::String || read == ElementType::Logical ||
                      type.Equals(*arrowTypeOf(read));
  return isSame ? std::string() : type.ToString();
}

Column toColumn(ElementType type, const arrow::Array& array, arrow::MemoryPool* pool) {
  if (array.type_id() == arrow::Type::EXTENSION) {
    return toColumn(type, *static_cast<const arrow::ExtensionArray&>(array).storage(), pool);
  }
  assert(type == elementTypeOf(*array.type()) && type != ElementType::Unknown);
  assert(!firstBeyondTimes(array));
  switch (type) {
    case ElementType::Double:
      return doubleColumn(array, pool);
    case ElementType::Single:
      return singleColumn(array, pool);
    case ElementType::Logical:
      return logicalColumn(array, pool);
    case ElementType::String:
      return textColumn(array, pool);
    case ElementType::DateTime:
    case ElementType::Duration:
      return timeColumn(type, array, pool);
    default:
      return integerColumn(type, array);
  }
}

std::optional<std::int64_t> firstBeyondTimes(const arrow::Array& array) {
  const std::optional<TimeUnit> unit = timeUnitOf(*array.type());
  if (!unit || unit->times == 1) {
    return std::nullopt;
  }
  const std::int64_t most = std::numeric_limits<std::int64_t>::max() / unit->times;
  std::optional<std::int64_t> found;
  visitTimes(array, [&](const auto* values) {
    for (std::int64_t row = 0; row < array.length() && !found; ++row) {
      if ((values[row] > most || values[row] < -most) && !array.IsNull(row)) {
        found = row;
      }
    }
  });
  return found;
}

std::optional<std::int64_t> firstNotText(const arrow::Array& array) {
  switch (array.type_id()) {
    case arrow::Type::EXTENSION:
      return firstNotText(*static_cast<const arrow::ExtensionArray&>(array).storage());
    case arrow::Type::DICTIONARY:
      return firstNotText(*static_cast<const arrow::DictionaryArray&>(array).dictionary());
    case arrow::Type::LARGE_STRING:
      return firstNotUtf8(static_cast<const arrow::LargeStringArray&>(array));
    case arrow::Type::STRING_VIEW:
      return firstNotUtf8(static_cast<const arrow::StringViewArray&>(array));
    default:
      return firstNotUtf8(static_cast<const arrow::StringArray&>(array));
  }
}

}  // namespace kv::runtime

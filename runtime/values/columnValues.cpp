#include "values/columnValues.h"

#include <arrow/array/builder_binary.h>
#include <arrow/array/concatenate.h>
#include <arrow/array/data.h>
#include <arrow/array/util.h>
#include <arrow/buffer.h>
#include <arrow/result.h>
#include <arrow/scalar.h>
#include <fmt/core.h>

#include <algorithm>
#include <array>
#include <bit>
#include <cassert>
#include <cstdint>
#include <limits>
#include <optional>
#include <ranges>
#include <span>
#include <utility>

#include "column/allocate.h"
#include "column/elementTypes.h"
#include "foundation/i18n.h"
#include "kv/host/elementTypes.h"
#include "kv/host/errors.h"
#include "values/hostNames.h"

namespace kv::runtime {

namespace {

/// An Unknown column has no rows; as a value it is double.
kxClassID classOf(ElementType type) {
  if (type == ElementType::Logical) {
    return kxLOGICAL_CLASS;
  }
  return type == ElementType::String
             ? kxSTRING_CLASS
             : visitNumeric(type, []<class T>() { return host::kClassOf<T>; });
}

/// The type of a numeric or logical class.
std::optional<ElementType> numericType(kxClassID classId) {
  const std::span types = allElementTypes();
  const auto found = std::ranges::find(types, classId, classOf);
  return found == types.end() || *found == ElementType::String ? std::nullopt
                                                               : std::optional(*found);
}

/// The bits of a quiet NaN that means a missing element of the type in its last byte.
constexpr std::uint64_t kMissingBits = 0x7FF8'4B56'0000'0000;

double missingMark(ElementType type) {
  return std::bit_cast<double>(kMissingBits | static_cast<std::uint64_t>(type));
}

/// The type of which all elements of a value are marked as missing.
std::optional<ElementType> missingType(const kxArray* value) {
  const bool hasDoubles = kxGetClassID(value) == kxDOUBLE_CLASS && !kxIsEmpty(value);
  if (!hasDoubles) {
    return std::nullopt;
  }
  const std::span numbers(static_cast<const double*>(kxGetData(value)),
                          kxGetNumberOfElements(value));
  const auto bits = std::bit_cast<std::uint64_t>(numbers.front());
  const auto type = static_cast<ElementType>(bits & 0xFF);
  const bool isMark = (bits & ~std::uint64_t{0xFF}) == kMissingBits &&
                      (type == ElementType::Logical || isInteger(type));
  const auto isSame = [bits](double number) {
    return std::bit_cast<std::uint64_t>(number) == bits;
  };
  return isMark && std::ranges::all_of(numbers, isSame) ? std::optional(type) : std::nullopt;
}

host::Value missingValue(std::size_t rows, double mark) {
  const std::array<std::size_t, 2> dimensions{rows, 1};
  host::Value value = matrix::from_kalvex(kxCreateNumericArray(dimensions, kxDOUBLE_CLASS));
  std::fill_n(static_cast<double*>(kxGetMutableData(value.get())), rows, mark);
  return value;
}

/// A buffer over the memory of a host array, which it keeps.
class ValueBuffer final : public arrow::Buffer {
 public:
  ValueBuffer(host::Value value, std::int64_t bytes)
      : arrow::Buffer(static_cast<const std::uint8_t*>(kxGetData(value.get())), bytes),
        value_(std::move(value)) {}

 private:
  host::Value value_;
};

Column textColumn(std::size_t rows, auto&& textAt) {
  arrow::StringBuilder builder;
  checkArrow(builder.Reserve(static_cast<std::int64_t>(rows)));
  for (std::size_t row = 0; row < rows; ++row) {
    const std::optional<std::u16string_view> text = textAt(row);
    checkArrow(text ? builder.Append(fl::i18n::to_string(*text)) : builder.AppendNull());
  }
  std::shared_ptr<arrow::ArrayData> data;
  checkArrow(builder.FinishInternal(&data));
  return {ElementType::String, std::move(data)};
}

const void* firstElement(const Column& column) {
  const arrow::ArrayData& data = *column.data();
  const auto skipped = static_cast<std::size_t>(data.offset) * elementSize(column.type());
  return data.buffers[1] ? data.buffers[1]->data() + skipped : nullptr;
}

bool isCharRow(const kxArray* value) {
  return kxGetClassID(value) == kxCHAR_CLASS && (kxGetM(value) == 1 || kxIsEmpty(value));
}

/// More wrappers than any value has; one that a file brought may hold itself.
constexpr int kMaxWrappers = 100;

}  // namespace

host::Value toValue(const Column& column) {
  const auto rows = static_cast<std::size_t>(column.rows());
  if (column.isMissing()) {
    return missingValue(rows, missingMark(column.type()));
  }
  if (column.type() != ElementType::String) {
    const std::array<std::size_t, 2> dimensions{rows, 1};
    return matrix::from_kalvex(kxCreateBorrowedArray(dimensions, classOf(column.type()),
                                                     firstElement(column), column.data()));
  }
  host::Value value = Torvane::String::createStringArray(rows, 1);
  for (std::size_t row = 0; row < rows; ++row) {
    const auto at = static_cast<std::int64_t>(row);
    if (!column.isMissingText(at)) {
      Torvane::String::setString(value.get(), row, fl::i18n::to_ustring(column.text(at)));
    }
  }
  return value;
}

host::Value asReturned(host::Value value) {
  if (value == nullptr || !missingType(value.get())) {
    return value;
  }
  return missingValue(kxGetNumberOfElements(value.get()), std::numeric_limits<double>::quiet_NaN());
}

bool isColumn(const kxArray* value) noexcept {
  if (isCharRow(value)) {
    return true;
  }
  const bool holdsElements =
      numericType(kxGetClassID(value)).has_value() || Torvane::String::isString(value);
  return holdsElements && (kxGetN(value) == 1 || kxGetNumberOfElements(value) == 0);
}

bool isBroadcastArray(const kxArray* value) {
  return kcos::omIsKCOS(value) && kxIsScalar(value) && kxIsA(value, kBroadcastArray);
}

host::Value withoutBroadcast(const kxArray* value) {
  host::Value held = matrix::sharedCopy(value);
  for (int depth = 0; depth < kMaxWrappers && isBroadcastArray(held.get()); ++depth) {
    held = host::getProperty(held.get(), "Value");
  }
  return held;
}

Column toColumn(const kxArray* wrapped) {
  const host::Value held = withoutBroadcast(wrapped);
  const kxArray* value = held.get();
  if (!isColumn(value)) {
    host::raise("KALVEX:array:NotAColumn",
                {fmt::format("{}x{}", kxGetM(value), kxGetN(value)), kxGetClassName(value)});
  }
  if (isCharRow(value)) {
    return textColumn(1, [&](std::size_t) { return std::optional(kxGetChars(value)); });
  }
  const std::size_t rows = kxGetNumberOfElements(value);
  if (Torvane::String::isString(value)) {
    return textColumn(rows,
                      [&](std::size_t row) { return Torvane::String::getString(value, row); });
  }
  if (const std::optional<ElementType> missing = missingType(value)) {
    return missingColumn(*missing, static_cast<std::int64_t>(rows));
  }
  const auto bytes = static_cast<std::int64_t>(rows * kxGetElementSize(kxGetClassID(value)));
  return {*numericType(kxGetClassID(value)), static_cast<std::int64_t>(rows),
          std::make_shared<ValueBuffer>(matrix::sharedCopy(value), bytes)};
}

}  // namespace kv::runtime

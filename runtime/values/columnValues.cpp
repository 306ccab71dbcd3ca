// Single columns between the engine and the host: which class has which type, and how they share
// memory. A borrowed buffer keeps the value that it came from.

#include "values/columnValues.h"

#include <arrow/array/builder_binary.h>
#include <arrow/array/data.h>
#include <arrow/buffer.h>
#include <fmt/format.h>
#include <fmt/ranges.h>

#include <array>
#include <cstdint>
#include <optional>
#include <string_view>
#include <utility>

#include "column/Validity.h"
#include "column/allocate.h"
#include "column/borrowed.h"
#include "column/elementTypes.h"
#include "column/pool.h"
#include "foundation/i18n.h"
#include "kv/host/elementTypes.h"
#include "kv/host/errors.h"
#include "kv/runtime/timeValues.h"
#include "values/hostNames.h"
#include "values/missingMarks.h"

namespace kv::runtime {

namespace {

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
  arrow::StringBuilder builder(currentPool());
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

/// A host array over the elements of a column that aren't texts.
host::Value numbersOf(const Column& column) {
  const std::array<std::size_t, 2> dimensions{static_cast<std::size_t>(column.rows()), 1};
  const Column kept = owned(column);  // a user may keep the value for any time
  return matrix::from_kalvex(
      kxCreateBorrowedArray(dimensions, classOf(kept.type()), firstElement(kept), kept.data()));
}

/// A column over the elements of a numeric array.
Column columnOver(ElementType type, const kxArray* numbers) {
  const std::size_t rows = kxGetNumberOfElements(numbers);
  const auto bytes = static_cast<std::int64_t>(rows * kxGetElementSize(kxGetClassID(numbers)));
  return {type, static_cast<std::int64_t>(rows),
          std::make_shared<ValueBuffer>(matrix::sharedCopy(numbers), bytes)};
}

[[noreturn]] void refuse(const kxArray* value) {
  host::raise("KALVEX:array:NotAColumn",
              {fmt::format("{}", fmt::join(kxGetDimensions(value), "x")), kxGetClassName(value)});
}

/// More wrappers than any value has; one that a file brought may hold itself.
constexpr int kMaxWrappers = 100;

}  // namespace

kxClassID classOf(ElementType type) {
  if (type == ElementType::Logical) {
    return kxLOGICAL_CLASS;
  }
  return type == ElementType::String
             ? kxSTRING_CLASS
             : visitNumeric(type, []<class T>() { return host::kClassOf<T>; });
}

std::optional<ElementType> numericTypeOf(kxClassID classId) {
  const std::span types = allElementTypes();
  const auto found = std::ranges::find(types, classId, classOf);
  return found == types.end() || *found == ElementType::String ? std::nullopt
                                                               : std::optional(*found);
}

host::Value toValue(const Column& column) {
  if (column.isNullable() && column.hasNulls()) {
    return toMarkedDoubles({.ordinals = RowOrdinals(0, column.rows()), .columns = {column}});
  }
  if (isTime(column.type())) {
    return makeTimes(column.type(), numbersOf(column));
  }
  if (column.type() != ElementType::String) {
    return numbersOf(column);
  }
  const auto rows = static_cast<std::size_t>(column.rows());
  host::Value value = Torvane::String::createStringArray(rows, 1);
  for (std::size_t row = 0; row < rows; ++row) {
    const auto at = static_cast<std::int64_t>(row);
    if (!column.isNull(at)) {
      Torvane::String::setString(value.get(), row, fl::i18n::to_ustring(column.text(at)));
    }
  }
  return value;
}

host::Value asReturned(host::Value value) {
  return value == nullptr ? std::move(value) : withoutMarks(std::move(value));
}

bool isCharRow(const kxArray* value) noexcept {
  return kxGetClassID(value) == kxCHAR_CLASS && (kxGetM(value) == 1 || kxIsEmpty(value));
}

bool isArray(const kxArray* value) {
  return isCharRow(value) || numericTypeOf(kxGetClassID(value)).has_value() ||
         Torvane::String::isString(value) || timesIn(value) != nullptr;
}

bool isColumn(const kxArray* value) {
  const kxArray* shaped = shapedElements(value);
  return isArray(value) && (isCharRow(value) || kxGetN(shaped) == 1 || kxIsEmpty(shaped));
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

host::Value asBroadcast(const kxArray* value) {
  return isBroadcastArray(value) ? matrix::sharedCopy(value) : host::call(kBroadcastArray, {value});
}

Column toColumn(const kxArray* value) {
  const host::Value held = withoutBroadcast(value);
  if (!isColumn(held.get())) {
    refuse(held.get());
  }
  return elementsOf(held.get());
}

Column elementsOf(const kxArray* value) {
  if (!isArray(value)) {
    refuse(value);
  }
  if (isCharRow(value)) {
    return textColumn(1, [&](std::size_t) { return std::optional(kxGetChars(value)); });
  }
  if (const TimeArray* times = timesIn(value)) {
    return columnOver(times->type, times->microseconds.get());
  }
  if (Torvane::String::isString(value)) {
    return textColumn(kxGetNumberOfElements(value),
                      [&](std::size_t row) { return Torvane::String::getString(value, row); });
  }
  if (std::optional<Column> column = fromMarkedDoubles(value)) {
    return *std::move(column);
  }
  return columnOver(*numericTypeOf(kxGetClassID(value)), value);
}

}  // namespace kv::runtime

// The host's arrays have no place for missing elements, but users' functions get such arrays. So a
// nullable column becomes doubles in which a missing element is a NaN whose bits name the column's
// type: arithmetic treats it as any NaN, and an element that comes back unchanged is known again. A
// result is taken for such a column only if it holds a mark and all other elements fit its type;
// anything else is what it seems, doubles.

#include "values/missingMarks.h"

#include <arrow/buffer.h>
#include <fmt/core.h>

#include <algorithm>
#include <bit>
#include <cassert>
#include <cmath>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <span>
#include <string>
#include <utility>

#include "column/Validity.h"
#include "column/allocate.h"
#include "column/arrays.h"
#include "column/elementTypes.h"
#include "kv/host/errors.h"

namespace kv::runtime {

namespace {

using Numbers = std::span<const double>;

/// The bits of a quiet NaN that means a missing element of the type in its last byte.
constexpr std::uint64_t kMarkBits = 0x7FF8'4B56'0000'0000;
constexpr std::uint64_t kTypeBits = 0xFF;

/// Doubles that are searched at a time, without a branch in the loop.
constexpr std::size_t kSearchedAtOnce = 4096;

std::uint64_t markOf(ElementType type) { return kMarkBits | static_cast<std::uint64_t>(type); }

bool isMark(double number) {
  return (std::bit_cast<std::uint64_t>(number) & ~kTypeBits) == kMarkBits;
}

/// The number as a double.
///
/// Errors: "KALVEX:array:MissingField".
template <class T>
double exactDouble(T number, std::int64_t row, ElementType type) {
  constexpr auto kLast = static_cast<std::int64_t>(kMaxExactWhole);
  if (std::cmp_greater(number, kLast) || std::cmp_less(number, -kLast)) {
    host::raise("KALVEX:array:MissingField", {std::to_string(row + 1), fmt::format("{}", number),
                                              std::string(elementTypeName(type))});
  }
  return static_cast<double>(number);
}

/// The doubles of a value; none of a value of another class.
Numbers doublesOf(const kxArray* value) {
  if (kxGetClassID(value) != kxDOUBLE_CLASS) {
    return {};
  }
  return {static_cast<const double*>(kxGetData(value)), kxGetNumberOfElements(value)};
}

bool holdsMark(Numbers numbers) {
  bool found = false;
  for (const double number : numbers) {
    found |= isMark(number);
  }
  return found;
}

std::optional<double> firstMark(Numbers numbers) {
  while (!numbers.empty()) {
    const Numbers block = numbers.first(std::min(kSearchedAtOnce, numbers.size()));
    if (holdsMark(block)) {
      return *std::ranges::find_if(block, isMark);
    }
    numbers = numbers.subspan(block.size());
  }
  return std::nullopt;
}

/// The type in a mark; none if it isn't one that has marks.
std::optional<ElementType> typeIn(double mark) {
  const auto type = static_cast<ElementType>(std::bit_cast<std::uint64_t>(mark) & kTypeBits);
  const bool isMarked = type == ElementType::Logical || isInteger(type);
  return isMarked ? std::optional(type) : std::nullopt;
}

/// True for what `toMarkedDoubles` makes of an element of type `type`, which is `T` in C++.
template <class T>
bool isElement(double number, ElementType type) {
  if (type == ElementType::Logical) {
    return number == 0 || number == 1;
  }
  return std::trunc(number) == number && std::abs(number) <= kMaxExactWhole &&
         number >= static_cast<double>(std::numeric_limits<T>::min()) &&
         number <= static_cast<double>(std::numeric_limits<T>::max());
}

host::Value doublesLike(std::span<const std::size_t> dimensions) {
  return matrix::from_kalvex(kxCreateNumericArray(dimensions, kxDOUBLE_CLASS));
}

/// Writes the elements of a column to `numbers`.
void writeMarkedDoubles(const Column& column, const RowOrdinals& rows, double* numbers) {
  const Validity validity(column);
  const auto mark = std::bit_cast<double>(markOf(column.type()));
  visitNumeric(column.type(), [&]<class T>() {
    if constexpr (std::integral<T>) {
      const auto elements = column.values<T>();
      for (std::size_t i = 0; i < elements.size(); ++i) {
        const auto row = static_cast<std::int64_t>(i);
        numbers[i] =
            validity.isNull(row) ? mark : exactDouble(+elements[i], rows.at(row), column.type());
      }
    }
  });
}

}  // namespace

host::Value toMarkedDoubles(const Chunk& array) {
  assert(std::ranges::all_of(array.columns, &Column::isNullable));
  host::Value value = doublesLike(dimensionsOf(array));
  auto* numbers = static_cast<double*>(kxGetMutableData(value.get()));
  for (const Column& column : array.columns) {
    writeMarkedDoubles(column, array.ordinals, numbers);
    numbers += array.rows();
  }
  return value;
}

std::optional<Column> fromMarkedDoubles(const kxArray* value) {
  const Numbers numbers = doublesOf(value);
  const std::optional<double> mark = firstMark(numbers);
  const std::optional<ElementType> type = mark ? typeIn(*mark) : std::nullopt;
  if (!type) {
    return std::nullopt;
  }
  const auto isMissing = [bits = markOf(*type)](double number) {
    return std::bit_cast<std::uint64_t>(number) == bits;
  };
  return visitNumeric(*type, [&]<class T>() -> std::optional<Column> {
    auto buffer = allocateBuffer(static_cast<std::int64_t>(numbers.size() * sizeof(T)));
    for (std::size_t i = 0; i < numbers.size(); ++i) {
      const bool isNull = isMissing(numbers[i]);
      if (!isNull && !isElement<T>(numbers[i], *type)) {
        return std::nullopt;
      }
      buffer->mutable_data_as<T>()[i] = isNull ? T{0} : static_cast<T>(numbers[i]);
    }
    const auto rows = static_cast<std::int64_t>(numbers.size());
    return nullableColumn(*type, rows, std::move(buffer), nullBits(rows, [&](std::int64_t row) {
      return isMissing(numbers[static_cast<std::size_t>(row)]);
    }));
  });
}

host::Value withoutMarks(host::Value value) {
  const Numbers numbers = doublesOf(value.get());
  if (!firstMark(numbers)) {
    return value;
  }
  host::Value plain = doublesLike(kxGetDimensions(value.get()));
  std::ranges::transform(numbers, static_cast<double*>(kxGetMutableData(plain.get())),
                         [](double number) {
                           constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
                           return isMark(number) ? kNaN : number;
                         });
  return plain;
}

}  // namespace kv::runtime

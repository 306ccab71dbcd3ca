#include "hostValues.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstdint>
#include <string>
#include <utility>

#include "foundation/i18n.h"
#include "kv/error.h"
#include "kv/host/elementTypes.h"
#include "kv/runtime/timeValues.h"
#include "kv/runtime/times.h"
#include "kx/string.h"

namespace kv {

namespace {

template <class T>
std::span<const T> elements(const kxArray* column) {
  return {static_cast<const T*>(kxGetData(column)), kxGetNumberOfElements(column)};
}

/// Calls `use` with the elements of a numeric column in their own type.
/// Result: false, without a call, for a column that isn't numeric.
template <class Use>
bool withNumbers(const kxArray* column, Use&& use) {
  return host::visitNumberType(kxGetClassID(column), [&]<class T>() { use(elements<T>(column)); });
}

/// The widest type of the same kind as `T`.
template <class T>
using Widest =
    std::conditional_t<std::is_floating_point_v<T>, double,
                       std::conditional_t<std::is_signed_v<T>, std::int64_t, std::uint64_t>>;

Value::Logicals logicalsOf(const kxArray* column) {
  const bool* first = kxGetLogicals(column);
  return Value::Logicals(first, first + kxGetNumberOfElements(column));
}

Value::Texts textsOf(const kxArray* column) {
  Value::Texts texts;
  for (std::size_t row = 0; row < kxGetNumberOfElements(column); ++row) {
    const auto text = Torvane::String::getString(column, row);
    texts.push_back(text ? std::optional(fl::i18n::to_string(*text)) : std::nullopt);
  }
  return texts;
}

/// Times whose missing values are empty.
template <class Times>
Times timesOf(const kxArray* microseconds) {
  Times times;
  for (const std::int64_t time : elements<std::int64_t>(microseconds)) {
    using Time = typename Times::value_type::value_type;
    const Time known{std::chrono::microseconds(time)};
    times.push_back(time == runtime::kNaT ? std::nullopt : std::optional(known));
  }
  return times;
}

/// Refuses an array of several columns.
void requireColumn(const kxArray* value) {
  const kxArray* shaped = runtime::shapedElements(value);
  if (kxGetN(shaped) != 1 && !kxIsEmpty(shaped)) {
    raiseNotAColumn(value);
  }
}

}  // namespace

void raiseNotAColumn(const kxArray* value) {
  raiseError("KALVEX:array:NotAColumn",
             {fmt::format("{}x{}", kxGetM(value), kxGetN(value)), kxGetClassName(value)});
}

Value toValue(const kxArray* column) {
  requireColumn(column);
  if (kxGetClassID(column) == kxLOGICAL_CLASS) {
    return Value(logicalsOf(column));
  }
  if (Torvane::String::isString(column)) {
    return Value(textsOf(column));
  }
  if (const runtime::TimeArray* times = runtime::timesIn(column)) {
    const kxArray* microseconds = times->microseconds.get();
    return times->type == runtime::ElementType::DateTime
               ? Value(timesOf<Value::Moments>(microseconds))
               : Value(timesOf<Value::Durations>(microseconds));
  }
  Value::Data data;
  const bool isNumeric = withNumbers(column, [&]<class T>(std::span<const T> numbers) {
    data = std::vector<Widest<T>>(numbers.begin(), numbers.end());
  });
  if (isNumeric) {
    return Value(std::move(data));
  }
  raiseNotAColumn(column);
}

std::span<const double> numbersOf(const kxArray* column, std::vector<double>& store) {
  requireColumn(column);
  if (kxGetClassID(column) == kxDOUBLE_CLASS) {
    return elements<double>(column);
  }
  const auto toDouble = [](auto number) { return static_cast<double>(number); };
  const auto copy = [&](const auto& numbers) {
    store.resize(numbers.size());
    std::ranges::transform(numbers, store.begin(), toDouble);
  };
  if (kxGetClassID(column) == kxLOGICAL_CLASS) {
    copy(std::span(kxGetLogicals(column), kxGetNumberOfElements(column)));
  } else if (!withNumbers(column, copy)) {
    raiseError("KALVEX:array:NotANumber", {kxGetClassName(column)});
  }
  return store;
}

}  // namespace kv

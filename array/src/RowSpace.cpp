// Rows are known by keys: of a source its identity, of filtered rows a hash of the rows before and
// of what the condition was made from. So `x[x > 0] * y[x > 0]` is accepted and `x[x > 0] + x`
// refused where it is written. Where a key can't be known, the run decides.

#include "RowSpace.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <boost/container_hash/hash.hpp>
#include <type_traits>
#include <utility>
#include <variant>

#include "handles.h"
#include "kv/lazyGraph.h"

namespace kv {

namespace {

std::size_t keyOfInput(const Operand& input) {
  return std::visit(
      []<class T>(const T& value) -> std::size_t {
        if constexpr (std::is_same_v<T, Array>) {
          return value.handle().traits.made;
        } else {
          std::size_t key = boost::hash<std::string_view>()(typeid(T).name());
          boost::hash_combine(key, value);
          return key;
        }
      },
      input.value());
}

/// Where an array was recorded, for messages; empty if it isn't known.
std::string placeOf(const Array& array) {
  const StackFrame place = originOf(array).place;
  return place.file.empty() ? "" : fmt::format(" in {}, line {}", place.file, place.line);
}

std::string shownOrigin(const Array& array) {
  const RowSpace& rows = *array.handle().traits.rows;
  std::string origin = fmt::format("an array recorded{} (rows of {}", placeOf(array), rows.name());
  for (const Array& filter : rows.filters()) {
    origin += fmt::format(", filtered by the condition recorded{}", placeOf(filter));
  }
  return origin + ")";
}

[[noreturn]] void refuse(const Array& array, const Array& other, const Where& where) {
  const RowSpace& rows = *array.handle().traits.rows;
  const RowSpace& otherRows = *other.handle().traits.rows;
  const StackFrame line{where.file_name(), where.function_name(), static_cast<int>(where.line())};
  if (!rows.isOfSameSource(otherRows)) {
    raiseError("KALVEX:array:DifferentSources", {shownOrigin(array), shownOrigin(other)}, {line});
  }
  raiseError("KALVEX:array:RowsDiffer",
             {shownOrigin(array), shownOrigin(other),
              "; filter the table first, or both by one condition"},
             {line});
}

/// True if the rows go with any others, or the run has to decide.
bool goesWithAny(const Array& array) {
  const auto& rows = array.handle().traits.rows;
  return array.isScalar() || rows == nullptr || !rows->isOfKnownSource();
}

std::string sizeOf(const Array& array) {
  std::string size = array.isScalar() ? "1" : "n";
  for (const std::int64_t extent : array.trailing()) {
    size += "-by-" + std::to_string(extent);
  }
  return array.trailing().empty() ? size + "-by-1" : size;
}

/// The dimensions after that of rows of what is computed from arrays element by element: one that
/// is 1, or that an array doesn't have, has the size that it has in the others.
std::vector<std::int64_t> expandedTrailing(std::string_view function,
                                           std::span<const Array> inputs) {
  std::vector<std::int64_t> common;
  for (const Array& input : inputs) {
    const std::vector<std::int64_t>& own = input.trailing();
    common.resize(std::max(common.size(), own.size()), 1);
    for (std::size_t i = 0; i < own.size(); ++i) {
      if (own[i] != 1 && common[i] != 1 && own[i] != common[i]) {
        const auto other = std::ranges::find_if(inputs, [&](const Array& each) {
          return i < each.trailing().size() && each.trailing()[i] == common[i];
        });
        raiseError("KALVEX:array:SizesDiffer",
                   {std::string(function), sizeOf(*other), "an array recorded" + placeOf(*other),
                    sizeOf(input), "an array recorded" + placeOf(input)});
      }
      common[i] = own[i] == 1 ? common[i] : own[i];
    }
  }
  return common;
}

/// True if it isn't known which rows of several are the same.
bool areUncertain(std::span<const Array> inputs, const RowSpace& rows) {
  return std::ranges::any_of(inputs, [&](const Array& input) {
    const RowTraits& own = input.handle().traits;
    return !own.isScalar &&
           (own.rows == nullptr || (!own.rows->isOfKnownSource() && !own.rows->isSame(rows)));
  });
}

RowTraits combined(std::span<const Array> inputs, const Where& where) {
  requireSameRows(inputs, where);
  RowTraits traits{.isScalar = true};
  for (const Array& input : inputs) {
    const RowTraits& own = input.handle().traits;
    traits.isScalar = traits.isScalar && own.isScalar;
    traits.isColumn = traits.isColumn || own.isColumn;
    traits.rows = traits.rows == nullptr ? own.rows : traits.rows;
  }
  if (traits.rows != nullptr && areUncertain(inputs, *traits.rows)) {
    traits.rows = std::make_shared<const RowSpace>(std::nullopt);
  }
  return traits;
}

}  // namespace

RowSpace::RowSpace(std::string_view key, std::string name, std::optional<std::int64_t> count)
    : source_(boost::hash<std::string_view>()(key)),
      key_(source_),
      name_(std::move(name)),
      count_(count.value_or(-1)) {}

RowSpace::RowSpace(std::optional<std::int64_t> count)
    : source_(uniqueKey()), key_(source_), isOfKnownSource_(false), count_(count.value_or(-1)) {}

RowSpace::RowSpace(const RowSpace& input, const Array& keep)
    : source_(input.source_),
      key_(input.key_),
      isOfKnownSource_(input.isOfKnownSource_),
      name_(input.name_),
      filters_(input.filters_) {
  const std::size_t made = keep.handle().traits.made;
  boost::hash_combine(key_, made != 0 ? made : uniqueKey());
  if (filters_.size() == kMostFilters) {
    filters_.erase(filters_.begin());
  }
  filters_.push_back(keep);
}

std::optional<std::int64_t> RowSpace::count() const {
  const std::int64_t count = count_;
  return count < 0 ? std::nullopt : std::optional(count);
}

RowTraits traitsOf(std::string_view function, std::span<const Operand> inputs,
                   std::span<const Array> arrays, const Where& where) {
  std::size_t made = boost::hash<std::string_view>()(function);
  bool isKnown = true;
  for (const Operand& input : inputs) {
    const std::size_t key = keyOfInput(input);
    isKnown = isKnown && key != 0;
    boost::hash_combine(made, key);
  }
  RowTraits traits = combined(arrays, where);
  traits.made = isKnown ? made : 0;
  traits.trailing = expandedTrailing(function, arrays);
  return traits;
}

RowTraits traitsOfUnique(std::span<const Array> inputs, const Where& where) {
  RowTraits traits = combined(inputs, where);
  traits.made = uniqueKey();
  return traits;
}

RowTraits traitsOfAggregate(std::string_view aggregate, const Array& input, bool isWhole) {
  const RowTraits& own = input.handle().traits;
  std::size_t made = own.made == 0 ? 0 : keyOf(aggregate, own.made);
  if (made != 0 && own.rows != nullptr) {
    boost::hash_combine(made, own.rows->key());
  }
  return {.isScalar = true,
          .isColumn = own.isColumn,
          .rows = nullptr,
          .made = made,
          .trailing = isWhole ? std::vector<std::int64_t>() : own.trailing};
}

void requireSameRows(std::span<const Array> arrays, const Where& where) {
  const Array* first = nullptr;
  for (const Array& array : arrays) {
    if (goesWithAny(array)) {
      continue;
    }
    if (first != nullptr && !first->handle().traits.rows->isSame(*array.handle().traits.rows)) {
      refuse(*first, array, where);
    }
    first = first == nullptr ? &array : first;
  }
}

RowTraits traitsOfFiltered(const Array& input, const Array& keep, const Where& where) {
  requireSameRows(std::array{input, keep}, where);
  const RowTraits& own = input.handle().traits;
  RowTraits traits{
      .isColumn = own.isColumn, .trailing = own.trailing, .sourceType = own.sourceType};
  if (own.rows != nullptr && keep.handle().traits.rows != nullptr) {
    traits.rows = std::make_shared<const RowSpace>(*own.rows, keep);
    traits.made = own.made == 0 ? 0 : keyOf("filter", own.made);
  }
  return traits;
}

std::size_t uniqueKey() {
  static std::atomic<std::size_t> last{0};
  return keyOf("unique", ++last);
}

std::size_t keyOf(std::string_view name, std::size_t part) {
  std::size_t key = boost::hash<std::string_view>()(name);
  boost::hash_combine(key, part);
  return key;
}

}  // namespace kv

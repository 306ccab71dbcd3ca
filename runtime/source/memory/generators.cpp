// A generated element is a function of its position, so that any rows can be made at any time, by
// any thread, in any cut. Each kind is one class: what it computes, and its form in bytes.

#include "source/memory/generators.h"

#include <arrow/array/builder_binary.h>
#include <arrow/buffer.h>
#include <fmt/core.h>

#include <algorithm>
#include <bit>
#include <cassert>
#include <cmath>
#include <concepts>
#include <cstring>
#include <limits>
#include <optional>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "column/allocate.h"
#include "column/arrays.h"
#include "column/concatenate.h"
#include "column/elementTypes.h"
#include "column/pool.h"
#include "kv/errors/StepError.h"
#include "kv/runtime/memory.h"
#include "source/memory/ArrayDatastore.h"
#include "source/memory/cutOf.h"

namespace kv::runtime {

namespace {

/// A column whose element at position i is `valueAt(i)`.
template <class T, class ValueAt>
Column computed(ElementType type, std::int64_t first, std::int64_t count, const ValueAt& valueAt) {
  auto buffer = allocateBuffer(count * static_cast<std::int64_t>(sizeof(T)));
  auto* values = buffer->mutable_data_as<T>();
  for (std::int64_t i = 0; i < count; ++i) {
    values[i] = valueAt(first + i);
  }
  return {type, count, std::move(buffer)};
}

Column oneText(std::string_view text) {
  arrow::StringBuilder builder(currentPool());
  checkArrow(builder.Append(text));
  std::shared_ptr<arrow::ArrayData> data;
  checkArrow(builder.FinishInternal(&data));
  return {ElementType::String, std::move(data)};
}

void writeReal(double value, ByteWriter& bytes) {
  bytes.number(std::bit_cast<std::uint64_t>(value));
}
double readReal(ByteReader& bytes) { return std::bit_cast<double>(bytes.number<std::uint64_t>()); }

class Full final : public Generator {
 public:
  explicit Full(Column value) : Generator(value.type()), value_(std::move(value)) {}

  static std::shared_ptr<const ArrayColumn> read(ByteReader& bytes, const PositionCut& /*cut*/) {
    const ElementType type = readElementType(bytes);
    if (type == ElementType::Unknown) {
      bytes.refuse();
    }
    if (type == ElementType::String) {
      return std::make_shared<Full>(oneText(bytes.text()));
    }
    const auto bits = bytes.number<std::uint64_t>();
    auto buffer = allocateBuffer(static_cast<std::int64_t>(elementSize(type)));
    std::memcpy(buffer->mutable_data(), &bits, elementSize(type));
    if (type == ElementType::Logical && bits > 1) {
      bytes.refuse();
    }
    return std::make_shared<Full>(Column(type, 1, std::move(buffer)));
  }

  Column elements(std::int64_t /*first*/, std::int64_t count) const override {
    return repeat(value_, count);
  }

  void describe(ByteWriter& bytes) const override {
    bytes.number(static_cast<std::uint8_t>(GeneratorKind::Full));
    bytes.number(static_cast<std::uint8_t>(type()));
    if (type() == ElementType::String) {
      bytes.text(value_.text(0));
      return;
    }
    std::uint64_t bits = 0;
    visitNumeric(type(),
                 [&]<class T>() { std::memcpy(&bits, value_.values<T>().data(), sizeof(T)); });
    bytes.number(bits);
  }

 private:
  Column value_;
};

/// numpy.arange: the step is what the start and the number after it differ by, in the type.
class Arange final : public Generator {
 public:
  Arange(ElementType type, double start, double next)
      : Generator(type), start_(start), next_(next) {}

  static std::shared_ptr<const ArrayColumn> read(ByteReader& bytes, const PositionCut& /*cut*/) {
    const ElementType type = readElementType(bytes);
    const double start = readReal(bytes);
    const double next = readReal(bytes);
    if (!isFloating(type)) {
      bytes.refuse();
    }
    return std::make_shared<Arange>(type, start, next);
  }

  Column elements(std::int64_t first, std::int64_t count) const override {
    return type() == ElementType::Single ? elementsAs<float>(first, count)
                                         : elementsAs<double>(first, count);
  }

  void describe(ByteWriter& bytes) const override {
    bytes.number(static_cast<std::uint8_t>(GeneratorKind::Arange));
    bytes.number(static_cast<std::uint8_t>(type()));
    writeReal(start_, bytes);
    writeReal(next_, bytes);
  }

 private:
  template <class T>
  Column elementsAs(std::int64_t first, std::int64_t count) const {
    const T start = static_cast<T>(start_);
    const T next = static_cast<T>(next_);
    const T step = next - start;
    return computed<T>(type(), first, count, [=](std::int64_t i) {
      return i == 1 ? next : start + static_cast<T>(i) * step;
    });
  }

  double start_;
  double next_;
};

/// Wraps like all integer arithmetic; who makes one ensures that all numbers fit.
class WholeArange final : public Generator {
 public:
  WholeArange(ElementType type, std::int64_t start, std::int64_t step)
      : Generator(type),
        start_(static_cast<std::uint64_t>(start)),
        step_(static_cast<std::uint64_t>(step)) {}

  static std::shared_ptr<const ArrayColumn> read(ByteReader& bytes, const PositionCut& /*cut*/) {
    const ElementType type = readElementType(bytes);
    const auto start = bytes.number<std::int64_t>();
    const auto step = bytes.number<std::int64_t>();
    if (!isInteger(type)) {
      bytes.refuse();
    }
    return std::make_shared<WholeArange>(type, start, step);
  }

  Column elements(std::int64_t first, std::int64_t count) const override {
    return visitNumeric(type(), [&]<class T>() {
      return computed<T>(type(), first, count, [this](std::int64_t i) {
        return static_cast<T>(start_ + static_cast<std::uint64_t>(i) * step_);
      });
    });
  }

  void describe(ByteWriter& bytes) const override {
    bytes.number(static_cast<std::uint8_t>(GeneratorKind::WholeArange));
    bytes.number(static_cast<std::uint8_t>(type()));
    bytes.number(start_);
    bytes.number(step_);
  }

 private:
  std::uint64_t start_;
  std::uint64_t step_;
};

class Linspace final : public Generator {
 public:
  Linspace(double start, double stop, std::int64_t rows, bool hasEndpoint)
      : Generator(ElementType::Double),
        start_(start),
        stop_(stop),
        rows_(rows),
        hasEndpoint_(hasEndpoint) {}

  static std::shared_ptr<const ArrayColumn> read(ByteReader& bytes, const PositionCut& cut) {
    const std::int64_t rows = cut.rows();
    const double start = readReal(bytes);
    const double stop = readReal(bytes);
    return std::make_shared<Linspace>(start, stop, rows, bytes.flag());
  }

  Column elements(std::int64_t first, std::int64_t count) const override {
    const double range = stop_ - start_;
    const auto parts = static_cast<double>(hasEndpoint_ ? rows_ - 1 : rows_);
    const double step = range / parts;
    const std::int64_t last = hasEndpoint_ && rows_ > 1 ? rows_ - 1 : -1;
    return computed<double>(type(), first, count, [=, this](std::int64_t i) {
      const auto at = static_cast<double>(i);
      const double offset = parts > 0 && step != 0 ? at * step
                            : parts > 0            ? at / parts * range
                                                   : at * range;
      return i == last ? stop_ : offset + start_;
    });
  }

  void describe(ByteWriter& bytes) const override {
    bytes.number(static_cast<std::uint8_t>(GeneratorKind::Linspace));
    writeReal(start_, bytes);
    writeReal(stop_, bytes);
    bytes.flag(hasEndpoint_);
  }

 private:
  double start_;
  double stop_;
  std::int64_t rows_;
  bool hasEndpoint_;
};

std::int64_t elementBytes(ElementType type) {
  return type == ElementType::String ? kTextBytes : static_cast<std::int64_t>(elementSize(type));
}

bool isIn(ElementType type, std::int64_t number) {
  return visitNumeric(type, [number]<class T>() {
    if constexpr (std::integral<T>) {
      return std::in_range<T>(number);
    } else {
      return false;
    }
  });
}

std::string shownElement(const Column& value) {
  if (value.type() == ElementType::String) {
    return fmt::format("\"{}\"", value.text(0));
  }
  return visitNumeric(value.type(), [&]<class T>() {
    if constexpr (sizeof(T) == 1) {
      return fmt::format("{}", static_cast<int>(value.values<T>()[0]));
    } else {
      return fmt::format("{}", value.values<T>()[0]);
    }
  });
}

/// A number as one of type `To`; none if it would be another number.
template <class To, class From>
std::optional<To> numberAs(From value) {
  if constexpr (std::floating_point<To>) {
    return static_cast<To>(value);
  } else if constexpr (std::integral<From>) {
    return std::in_range<To>(value) ? std::optional(static_cast<To>(value)) : std::nullopt;
  } else {
    const auto number = static_cast<double>(value);
    const double end = std::ldexp(1.0, std::numeric_limits<To>::digits);
    const bool isWhole =
        number == std::floor(number) && number < end && number >= (std::is_signed_v<To> ? -end : 0);
    return isWhole ? std::optional(static_cast<To>(value)) : std::nullopt;
  }
}

/// The element of a column as a column of `type`.
Column elementAs(const Column& value, ElementType type) {
  const bool isText = value.type() == ElementType::String;
  if (value.type() == type) {
    return value;
  }
  std::optional<Column> converted;
  if (!isText && type != ElementType::String) {
    visitNumeric(value.type(), [&]<class From>() {
      visitNumeric(type, [&]<class To>() {
        const From number = value.values<From>()[0];
        const auto element = type == ElementType::Logical
                                 ? std::optional(static_cast<To>(number != From{0}))
                                 : numberAs<To>(number);
        if (element) {
          converted = scalarColumn(type, *element);
        }
      });
    });
  }
  if (!converted) {
    errors::raiseStep("KALVEX:function:OutOfRange",
                      {"full", shownElement(value), std::string(elementTypeName(type))});
  }
  return *converted;
}

}  // namespace

std::shared_ptr<const Datastore> generated(
    std::string name, PositionCut cut, Dimensions trailing,
    std::vector<std::shared_ptr<const ArrayColumn>> columns) {
  return std::make_shared<ArrayDatastore>(ArrayTable{std::move(name),
                                                     std::move(cut),
                                                     {},
                                                     withoutTrailingOnes(std::move(trailing)),
                                                     std::move(columns)});
}

std::shared_ptr<const ArrayColumn> readGenerator(ByteReader& bytes, const PositionCut& cut,
                                                 const ArrayColumn* previous,
                                                 ReadFileColumn readFileColumn) {
  using Read = std::shared_ptr<const ArrayColumn> (*)(ByteReader&, const PositionCut&);
  static constexpr std::pair<GeneratorKind, Read> kReaders[] = {
      {GeneratorKind::Full, Full::read},
      {GeneratorKind::Arange, Arange::read},
      {GeneratorKind::WholeArange, WholeArange::read},
      {GeneratorKind::Linspace, Linspace::read},
      {GeneratorKind::Random, readRandomColumn},
  };
  const auto kind = static_cast<GeneratorKind>(bytes.number<std::uint8_t>());
  if (kind == GeneratorKind::File) {
    return readFileColumn(bytes, cut, previous);
  }
  const auto* row = std::ranges::find(kReaders, kind, &std::pair<GeneratorKind, Read>::first);
  if (row == std::end(kReaders)) {
    bytes.refuse();
  }
  return row->second(bytes, cut);
}

std::shared_ptr<const Datastore> openArange(ElementType type, double start, double next,
                                            std::int64_t rows, const CutRequest& request) {
  assert(isFloating(type));
  return generated(fmt::format("arange of {} rows from {}", rows, start),
                   cutOf(rows, elementBytes(type), request), {},
                   {std::make_shared<Arange>(type, start, next)});
}

std::shared_ptr<const Datastore> openArange(ElementType type, std::int64_t start, std::int64_t step,
                                            std::int64_t rows, const CutRequest& request) {
  assert(isInteger(type));
  PositionCut cut = cutOf(rows, elementBytes(type), request);
  std::int64_t last = 0;
  const bool fits = !__builtin_mul_overflow(std::max<std::int64_t>(rows - 1, 0), step, &last) &&
                    !__builtin_add_overflow(start, last, &last) && isIn(type, start) &&
                    isIn(type, last);
  if (rows > 0 && !fits) {
    errors::raiseStep("KALVEX:datastore:OutOfRange",
                      {std::string(elementTypeName(type)), std::to_string(start),
                       std::to_string(step), std::to_string(rows)});
  }
  return generated(fmt::format("arange of {} rows from {}", rows, start), std::move(cut), {},
                   {std::make_shared<WholeArange>(type, start, step)});
}

std::shared_ptr<const Datastore> openLinspace(double start, double stop, std::int64_t rows,
                                              bool hasEndpoint, const CutRequest& request) {
  return generated(fmt::format("linspace of {} rows from {} to {}", rows, start, stop),
                   cutOf(rows, sizeof(double), request), {},
                   {std::make_shared<Linspace>(start, stop, rows, hasEndpoint)});
}

std::shared_ptr<const Datastore> openFull(const Column& value, ElementType type, std::int64_t rows,
                                          Dimensions trailing, const CutRequest& request) {
  const std::size_t count = columnsIn(trailing);
  const auto bytes = elementBytes(type) * static_cast<std::int64_t>(count);
  const auto column = std::make_shared<Full>(elementAs(value, type));
  return generated(fmt::format("{} rows of {}", rows, shownElement(value)),
                   cutOf(rows, bytes, request), std::move(trailing), {count, column});
}

}  // namespace kv::runtime

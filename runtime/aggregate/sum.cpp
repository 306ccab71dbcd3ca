#include <fmt/format.h>

#include <limits>
#include <optional>
#include <string>
#include <type_traits>

#include "aggregate/aggregateTable.h"
#include "aggregate/answers.h"
#include "aggregate/partialWords.h"
#include "aggregate/rowFolds.h"
#include "aggregate/sums.h"
#include "column/allocate.h"
#include "column/elementTypes.h"
#include "kv/errors/StepError.h"

namespace kv::runtime {

namespace {

std::optional<ElementType> typeOfSum(ElementType input) {
  if (input == ElementType::String || input == ElementType::DateTime) {
    return std::nullopt;
  }
  if (isFloating(input) || input == ElementType::Duration) {
    return input;
  }
  return isInteger(input) && !isSigned(input) ? ElementType::UInt64 : ElementType::Int64;
}

/// A sum of integers in its type; it never wraps.
template <class T>
Column exactSum(const AggregatePartial& total, ElementType type) {
  const WideInteger sum = loadInteger(total);
  using Limits = std::numeric_limits<T>;
  if (sum >= WideInteger{Limits::min()} && sum <= WideInteger{Limits::max()}) {
    return scalarColumn(type, static_cast<T>(sum));
  }
  errors::raiseStep("KALVEX:function:Overflow",
                    {"sum", fmt::format("{}", sum), std::string(elementTypeName(type))});
}

Column answerOfSum(const AggregatePartial& total) {
  if (isPoisoned(total)) {
    return missingAnswer(total);
  }
  if (!total.type || isFloating(*total.type)) {
    return floatingAnswer(total, sumOf(total));
  }
  const ElementType type = *typeOfSum(*total.type);
  return type == ElementType::UInt64 ? exactSum<std::uint64_t>(total, type)
                                     : exactSum<std::int64_t>(total, type);
}

template <class Sum, class T>
Column exactSumOfRows(std::span<const Column> columns, ElementType type) {
  const auto add = [type](Sum& sum, T element) {
    if (__builtin_add_overflow(sum, static_cast<Sum>(element), &sum)) {
      errors::raiseStep("KALVEX:function:Overflow",
                        {"sum", "a sum of a row", std::string(elementTypeName(type))});
    }
  };
  return columnOfElements(type, foldRows<T>(columns, Sum{0}, add));
}

Column sumOfRows(std::span<const Column> columns, MissingRule rule) {
  const ElementType input = columns.front().type();
  return visitNumeric(input, [&]<class T>() {
    if constexpr (std::is_floating_point_v<T>) {
      return floatingColumn(input, sumsOfRows<T>(columns, rule));
    } else {
      const ElementType type = *typeOfSum(input);
      return type == ElementType::UInt64 ? exactSumOfRows<std::uint64_t, T>(columns, type)
                                         : exactSumOfRows<std::int64_t, T>(columns, type);
    }
  });
}

}  // namespace

const AggregateFunction kSum{"sum",
                             AggregateKind::Sum,
                             "sum; 0 for no rows; exact in 64 bits for integers and logicals",
                             &typeOfSum,
                             &makeSumAccumulator,
                             &mergeSums,
                             &answerOfSum,
                             &sumOfRows};

}  // namespace kv::runtime

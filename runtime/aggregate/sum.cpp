#include <fmt/format.h>

#include <limits>
#include <optional>
#include <string>

#include "aggregate/aggregateTable.h"
#include "aggregate/answers.h"
#include "aggregate/partialWords.h"
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

}  // namespace

const AggregateFunction kSum{"sum",
                             AggregateKind::Sum,
                             "sum; 0 for no rows; exact in 64 bits for integers and logicals",
                             &typeOfSum,
                             &makeSumAccumulator,
                             &mergeSums,
                             &answerOfSum};

}  // namespace kv::runtime

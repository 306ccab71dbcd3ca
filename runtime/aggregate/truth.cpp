#include <optional>

#include "aggregate/aggregateTable.h"
#include "aggregate/answers.h"
#include "aggregate/partialWords.h"
#include "aggregate/rowFolds.h"
#include "aggregate/sums.h"
#include "column/allocate.h"

namespace kv::runtime {

namespace {

std::optional<ElementType> typeOfTruth(ElementType input) {
  return input == ElementType::Logical ? std::optional(input) : std::nullopt;
}

Column truthAnswer(const AggregatePartial& total, bool value) {
  return isPoisoned(total) ? missingAnswer(total)
                           : scalarColumn(ElementType::Logical, static_cast<std::uint8_t>(value));
}

Column answerOfAny(const AggregatePartial& total) {
  return truthAnswer(total, loadInteger(total) > 0);
}

Column answerOfAll(const AggregatePartial& total) {
  return truthAnswer(total, loadInteger(total) == total.count);
}

template <bool isAny>
Column truthOfRows(std::span<const Column> columns, MissingRule) {
  return visitNumeric(columns.front().type(), [&]<class T>() {
    const auto add = [](std::uint8_t& value, T element) {
      const bool isTrue = element != T{};
      value = static_cast<std::uint8_t>(isAny ? value != 0 || isTrue : value != 0 && isTrue);
    };
    return columnOfElements(ElementType::Logical,
                            foldRows<T>(columns, static_cast<std::uint8_t>(!isAny), add));
  });
}

}  // namespace

const AggregateFunction kAny{"any",        AggregateKind::Any,  "true if any value is true",
                             &typeOfTruth, &makeSumAccumulator, &mergeSums,
                             &answerOfAny, &truthOfRows<true>};
const AggregateFunction kAll{"all",        AggregateKind::All,  "true if all values are true",
                             &typeOfTruth, &makeSumAccumulator, &mergeSums,
                             &answerOfAll, &truthOfRows<false>};

}  // namespace kv::runtime

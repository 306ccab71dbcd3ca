#include "aggregate/aggregateTable.h"
#include "aggregate/answers.h"
#include "aggregate/partialWords.h"
#include "aggregate/rowFolds.h"
#include "aggregate/sums.h"
#include "column/allocate.h"

namespace kv::runtime {

namespace {

std::optional<ElementType> typeOfMean(ElementType input) {
  return input == ElementType::Duration ? input : floatingType(input);
}

Column answerOfMean(const AggregatePartial& total) {
  const bool isDuration = total.type == ElementType::Duration;
  if (isPoisoned(total) || (isDuration && total.count == 0)) {
    return missingAnswer(total);
  }
  if (isDuration) {
    return scalarColumn(*total.type, static_cast<std::int64_t>(loadInteger(total) / total.count));
  }
  return floatingAnswer(total, sumOf(total) / static_cast<double>(total.count));
}

Column meanOfRows(std::span<const Column> columns, MissingRule rule) {
  const ElementType input = columns.front().type();
  return visitNumeric(
      input, [&]<class T>() { return floatingColumn(input, meansOfRows<T>(columns, rule)); });
}

}  // namespace

const AggregateFunction kMean{
    "mean",        AggregateKind::Mean, "arithmetic mean; for logicals the share of true",
    &typeOfMean,   &makeSumAccumulator, &mergeSums,
    &answerOfMean, &meanOfRows};

}  // namespace kv::runtime

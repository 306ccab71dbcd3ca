#include "aggregate/aggregateTable.h"
#include "aggregate/answers.h"
#include "aggregate/sums.h"

namespace kv::runtime {

namespace {

Column answerOfMean(const AggregatePartial& total) {
  return isPoisoned(total) ? missingAnswer(total)
                           : floatingAnswer(total, sumOf(total) / static_cast<double>(total.count));
}

}  // namespace

const AggregateFunction kMean{
    "mean",        AggregateKind::Mean, "arithmetic mean; for logicals the share of true",
    &floatingType, &makeSumAccumulator, &mergeSums,
    &answerOfMean};

}  // namespace kv::runtime

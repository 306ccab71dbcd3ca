#include <cmath>
#include <limits>
#include <memory>

#include "aggregate/BlockedAccumulator.h"
#include "aggregate/aggregateTable.h"
#include "aggregate/answers.h"
#include "aggregate/partialWords.h"

namespace kv::runtime {

namespace {

std::unique_ptr<Accumulator> makeMomentAccumulator(MissingRule rule, ElementType) {
  return makeBlocked<MomentLanes, storeMoments>(rule);
}

void mergeMoments(AggregatePartial& partial, const AggregatePartial& later) {
  Moments moments = loadMoments(partial);
  moments.merge(loadMoments(later));
  storeMoments(partial, moments);
}

double varianceOf(const AggregatePartial& total) {
  if (total.count < 2) {
    return std::numeric_limits<double>::quiet_NaN();
  }
  return loadMoments(total).squares / static_cast<double>(total.count - 1);
}

Column answerOfVar(const AggregatePartial& total) {
  return isPoisoned(total) ? missingAnswer(total) : floatingAnswer(total, varianceOf(total));
}

Column answerOfStd(const AggregatePartial& total) {
  return isPoisoned(total) ? missingAnswer(total)
                           : floatingAnswer(total, std::sqrt(varianceOf(total)));
}

}  // namespace

const AggregateFunction kStd{
    "std",         AggregateKind::Std,     "standard deviation, with n - 1",
    &floatingType, &makeMomentAccumulator, &mergeMoments,
    &answerOfStd};
const AggregateFunction kVar{"var",         AggregateKind::Var,     "variance, with n - 1",
                             &floatingType, &makeMomentAccumulator, &mergeMoments,
                             &answerOfVar};

}  // namespace kv::runtime

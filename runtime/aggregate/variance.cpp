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

/// The sum of squares divided by the count less `lost`.
double varianceOf(const AggregatePartial& total, std::int64_t lost) {
  if (total.count <= lost) {
    return std::numeric_limits<double>::quiet_NaN();
  }
  return loadMoments(total).squares / static_cast<double>(total.count - lost);
}

template <std::int64_t lost>
Column answerOfVar(const AggregatePartial& total) {
  return isPoisoned(total) ? missingAnswer(total) : floatingAnswer(total, varianceOf(total, lost));
}

template <std::int64_t lost>
Column answerOfStd(const AggregatePartial& total) {
  return isPoisoned(total) ? missingAnswer(total)
                           : floatingAnswer(total, std::sqrt(varianceOf(total, lost)));
}

}  // namespace

const AggregateFunction kStd{
    "std",          AggregateKind::Std,     "standard deviation, with n - 1",
    &floatingType,  &makeMomentAccumulator, &mergeMoments,
    &answerOfStd<1>};
const AggregateFunction kVar{"var",          AggregateKind::Var,     "variance, with n - 1",
                             &floatingType,  &makeMomentAccumulator, &mergeMoments,
                             &answerOfVar<1>};
const AggregateFunction kStdP{"stdp",         AggregateKind::StdP,    "standard deviation, with n",
                              &floatingType,  &makeMomentAccumulator, &mergeMoments,
                              &answerOfStd<0>};
const AggregateFunction kVarP{"varp",         AggregateKind::VarP,    "variance, with n",
                              &floatingType,  &makeMomentAccumulator, &mergeMoments,
                              &answerOfVar<0>};

}  // namespace kv::runtime

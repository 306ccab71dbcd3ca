#include <algorithm>
#include <cmath>
#include <limits>
#include <memory>

#include "aggregate/BlockedAccumulator.h"
#include "aggregate/aggregateTable.h"
#include "aggregate/answers.h"
#include "aggregate/partialWords.h"
#include "aggregate/rowFolds.h"

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

/// The sums of squares divided by the number of values less `lost`; NaN where that is 0 or less.
template <class T>
std::vector<double> variancesOfRows(std::span<const Column> columns, MissingRule rule,
                                    std::int64_t lost) {
  const std::vector<std::int64_t> counts = countsOfRows<T>(columns, rule);
  const std::vector<double> means = meansOfRows<T>(columns, rule);
  std::vector<double> squares(means.size());
  forEachElement<T>(columns, [&](std::size_t row, T element) {
    const double deviation = static_cast<double>(element) - means[row];
    const bool isSkipped = rule == MissingRule::Skip && isMissingElement(element);
    squares[row] += isSkipped ? 0 : deviation * deviation;
  });
  for (std::size_t row = 0; row < squares.size(); ++row) {
    squares[row] = counts[row] > lost ? squares[row] / static_cast<double>(counts[row] - lost)
                                      : std::numeric_limits<double>::quiet_NaN();
  }
  return squares;
}

template <std::int64_t lost, bool takesRoot>
Column varianceOfRows(std::span<const Column> columns, MissingRule rule) {
  const ElementType input = columns.front().type();
  return visitNumeric(input, [&]<class T>() {
    std::vector<double> results = variancesOfRows<T>(columns, rule, lost);
    if (takesRoot) {
      std::ranges::transform(results, results.begin(),
                             [](double variance) { return std::sqrt(variance); });
    }
    return floatingColumn(input, results);
  });
}

}  // namespace

const AggregateFunction kStd{
    "std",           AggregateKind::Std,      "standard deviation, with n - 1",
    &floatingType,   &makeMomentAccumulator,  &mergeMoments,
    &answerOfStd<1>, &varianceOfRows<1, true>};
const AggregateFunction kVar{"var",           AggregateKind::Var,       "variance, with n - 1",
                             &floatingType,   &makeMomentAccumulator,   &mergeMoments,
                             &answerOfVar<1>, &varianceOfRows<1, false>};
const AggregateFunction kStdP{
    "stdp",          AggregateKind::StdP,     "standard deviation, with n",
    &floatingType,   &makeMomentAccumulator,  &mergeMoments,
    &answerOfStd<0>, &varianceOfRows<0, true>};
const AggregateFunction kVarP{"varp",          AggregateKind::VarP,      "variance, with n",
                              &floatingType,   &makeMomentAccumulator,   &mergeMoments,
                              &answerOfVar<0>, &varianceOfRows<0, false>};

}  // namespace kv::runtime

#include "aggregate/answers.h"

#include <cmath>
#include <cstddef>
#include <limits>
#include <utility>

#include "aggregate/aggregateTable.h"
#include "column/allocate.h"
#include "column/elementTypes.h"
#include "kv/errors/StepError.h"

namespace kv::runtime {

std::optional<ElementType> floatingType(ElementType input) {
  if (!isNumeric(input)) {
    return std::nullopt;
  }
  return input == ElementType::Single ? ElementType::Single : ElementType::Double;
}

bool isPoisoned(const AggregatePartial& total) {
  return total.rule == MissingRule::Propagate && total.hasMissing;
}

Column missingAnswer(const AggregatePartial& total) {
  const ElementType type = total.type.value_or(ElementType::Double);
  return missingColumn(aggregateType(total.kind, type), 1);
}

Chunk answersOf(std::vector<AggregatePartial> totals, const AggregateForm& form,
                Dimensions trailing) {
  if (form.isWhole) {
    for (std::size_t i = 1; i < totals.size(); ++i) {
      mergePartial(totals.front(), totals[i]);
    }
    totals.resize(1);
    trailing.clear();
  }
  Chunk answer{.ordinals = RowOrdinals(0, 1), .trailing = std::move(trailing)};
  for (const AggregatePartial& total : totals) {
    if (form.needsRows && total.count == 0 && !total.hasMissing) {
      errors::raiseStep("KALVEX:array:NoRows", {nameOf(total.kind)});
    }
    answer.columns.push_back(answerOf(total));
  }
  return answer;
}

Column floatingAnswer(const AggregatePartial& total, double value) {
  constexpr double kMissing = std::numeric_limits<double>::quiet_NaN();
  const double canonical = std::isnan(value) ? kMissing : value + 0.0;
  if (total.type == ElementType::Single) {
    return scalarColumn(ElementType::Single, static_cast<float>(canonical));
  }
  return scalarColumn(ElementType::Double, canonical);
}

}  // namespace kv::runtime

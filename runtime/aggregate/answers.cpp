#include "aggregate/answers.h"

#include <cmath>
#include <limits>

#include "column/allocate.h"
#include "column/elementTypes.h"

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

Column floatingAnswer(const AggregatePartial& total, double value) {
  constexpr double kMissing = std::numeric_limits<double>::quiet_NaN();
  const double canonical = std::isnan(value) ? kMissing : value + 0.0;
  if (total.type == ElementType::Single) {
    return scalarColumn(ElementType::Single, static_cast<float>(canonical));
  }
  return scalarColumn(ElementType::Double, canonical);
}

}  // namespace kv::runtime

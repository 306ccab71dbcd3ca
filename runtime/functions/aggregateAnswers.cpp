#include <arrow/array/data.h>
#include <arrow/type.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <vector>

#include "functions/accumulators.h"
#include "functions/allocate.h"
#include "functions/elementTypes.h"
#include "functions/partialWords.h"

namespace kv::runtime {

namespace {

constexpr double kMissing = std::numeric_limits<double>::quiet_NaN();

bool isTextExtreme(const AggregatePartial& partial) {
  return partial.type == ElementType::String && partial.kind != AggregateKind::Count;
}

bool isExtreme(AggregateKind kind) {
  return kind == AggregateKind::Min || kind == AggregateKind::Max;
}

template <class T>
bool isBetter(AggregateKind kind, const T& candidate, const T& best) {
  return kind == AggregateKind::Min ? candidate < best : candidate > best;
}

/// Requires: both have values.
bool isBetterExtreme(const AggregatePartial& candidate, const AggregatePartial& best) {
  if (isTextExtreme(best)) return isBetter(best.kind, candidate.text, best.text);
  return visitNumeric(*best.type, [&]<class T>() {
    return isBetter(best.kind, loadExtreme<T>(candidate), loadExtreme<T>(best));
  });
}

void mergeExtreme(AggregatePartial& partial, const AggregatePartial& later) {
  const bool takesLater =
      later.count > 0 && (partial.count == 0 || isBetterExtreme(later, partial));
  if (takesLater) {
    partial.words = later.words;
    partial.text = later.text;
  }
  partial.hasMissing = partial.hasMissing || later.hasMissing;
  partial.count += later.count;
}

/// An answer that is computed in double: +0 and the quiet NaN stand for all their kinds.
Column floatingAnswer(const AggregatePartial& total, double value) {
  const double canonical = std::isnan(value) ? kMissing : value + 0.0;
  if (total.type == ElementType::Single) {
    return scalarColumn(ElementType::Single, static_cast<float>(canonical));
  }
  return scalarColumn(ElementType::Double, canonical);
}

Column textAnswer(const AggregatePartial& total, bool isMissing) {
  const auto length = static_cast<std::int32_t>(isMissing ? 0 : total.text.size());
  auto offsets = allocateBuffer(2 * sizeof(std::int32_t));
  const std::int32_t values[] = {0, length};
  std::memcpy(offsets->mutable_data(), values, sizeof(values));
  auto bytes = allocateBuffer(length);
  if (length > 0) std::memcpy(bytes->mutable_data(), total.text.data(), total.text.size());
  std::shared_ptr<arrow::Buffer> validity;
  if (isMissing) {
    validity = allocateBuffer(1);
    *validity->mutable_data() = 0;
  }
  return Column(
      ElementType::String,
      arrow::ArrayData::Make(arrow::utf8(), 1, {validity, offsets, bytes}, isMissing ? 1 : 0));
}

Column extremeAnswer(const AggregatePartial& total) {
  const bool isPoisoned = total.rule == MissingRule::Propagate && total.hasMissing;
  const bool isMissing = total.count == 0 || isPoisoned;
  if (isTextExtreme(total)) return textAnswer(total, isMissing);
  if (isMissing || !total.type) return floatingAnswer(total, kMissing);
  if (isFloating(*total.type)) return floatingAnswer(total, loadExtreme<double>(total));
  return visitNumeric(*total.type,
                      [&]<class T>() { return scalarColumn(*total.type, loadExtreme<T>(total)); });
}

double sumOf(const AggregatePartial& total) {
  if (!total.type) return 0;
  if (isFloating(*total.type)) return loadSum(total).value();
  return static_cast<double>(loadInteger(total));
}

double varianceOf(const AggregatePartial& total) {
  if (total.count < 2) return kMissing;
  return loadMoments(total).squares / static_cast<double>(total.count - 1);
}

Column truthAnswer(bool value) {
  return scalarColumn(ElementType::Logical, static_cast<std::uint8_t>(value));
}

}  // namespace

void mergePartial(AggregatePartial& partial, const AggregatePartial& later) {
  if (isExtreme(partial.kind)) {
    mergeExtreme(partial, later);
  } else if (partial.kind == AggregateKind::Count) {
    partial.count += later.count;
  } else if (partial.kind == AggregateKind::Std || partial.kind == AggregateKind::Var) {
    Moments moments = loadMoments(partial);
    moments.merge(loadMoments(later));
    storeMoments(partial, moments);
  } else if (isFloating(*partial.type)) {
    CompensatedSum sum = loadSum(partial);
    sum.merge(loadSum(later));
    storeSum(partial, sum);
  } else {
    storeInteger(partial, loadInteger(partial) + loadInteger(later));
    partial.count += later.count;
  }
}

Column answerOf(const AggregatePartial& total) {
  const auto count = static_cast<double>(total.count);
  switch (total.kind) {
    case AggregateKind::Sum:
      return floatingAnswer(total, sumOf(total));
    case AggregateKind::Mean:
      return floatingAnswer(total, sumOf(total) / count);
    case AggregateKind::Min:
    case AggregateKind::Max:
      return extremeAnswer(total);
    case AggregateKind::Std:
      return floatingAnswer(total, std::sqrt(varianceOf(total)));
    case AggregateKind::Var:
      return floatingAnswer(total, varianceOf(total));
    case AggregateKind::Any:
      return truthAnswer(loadInteger(total) > 0);
    case AggregateKind::All:
      return truthAnswer(loadInteger(total) == total.count);
    case AggregateKind::Count:
      break;
  }
  return scalarColumn(ElementType::Double, count);
}

}  // namespace kv::runtime

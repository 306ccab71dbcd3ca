// Turns the merged contributions of all partitions into a result of one row. The sign of a zero and
// the payload of a NaN are normalised here, because they are the only parts of a result that could
// depend on the order in which values were reduced.

#include <arrow/array/data.h>
#include <arrow/type.h>
#include <fmt/format.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <string>

#include "aggregate/accumulators.h"
#include "aggregate/partialWords.h"
#include "column/allocate.h"
#include "column/elementTypes.h"
#include "kv/errors/StepError.h"

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
  if (isTextExtreme(best)) {
    return isBetter(best.kind, candidate.text, best.text);
  }
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
  partial.count += later.count;
}

/// A result that is computed in double. All zeros become +0, all NaNs the quiet NaN.
Column floatingAnswer(const AggregatePartial& total, double value) {
  const double canonical = std::isnan(value) ? kMissing : value + 0.0;
  if (total.type == ElementType::Single) {
    return scalarColumn(ElementType::Single, static_cast<float>(canonical));
  }
  return scalarColumn(ElementType::Double, canonical);
}

Column textAnswer(const AggregatePartial& total) {
  const auto length = static_cast<std::int32_t>(total.text.size());
  auto offsets = allocateBuffer(2 * sizeof(std::int32_t));
  const std::int32_t values[] = {0, length};
  std::memcpy(offsets->mutable_data(), values, sizeof(values));
  auto bytes = allocateBuffer(length);
  if (length > 0) {
    std::memcpy(bytes->mutable_data(), total.text.data(), total.text.size());
  }
  return Column(ElementType::String,
                arrow::ArrayData::Make(arrow::utf8(), 1, {nullptr, offsets, bytes}, 0));
}

Column extremeAnswer(const AggregatePartial& total) {
  if (isTextExtreme(total)) {
    return textAnswer(total);
  }
  if (isFloating(*total.type)) {
    return floatingAnswer(total, loadExtreme<double>(total));
  }
  return visitNumeric(*total.type,
                      [&]<class T>() { return scalarColumn(*total.type, loadExtreme<T>(total)); });
}

double sumOf(const AggregatePartial& total) {
  if (!total.type) {
    return 0;
  }
  if (isFloating(*total.type)) {
    return loadSum(total).value();
  }
  return static_cast<double>(loadInteger(total));
}

/// A sum of integers in its type; it never wraps.
template <class T>
Column exactSum(const AggregatePartial& total, ElementType type) {
  const WideInteger sum = loadInteger(total);
  using Limits = std::numeric_limits<T>;
  if (sum >= WideInteger{Limits::min()} && sum <= WideInteger{Limits::max()}) {
    return scalarColumn(type, static_cast<T>(sum));
  }
  const std::string exact = fmt::format("{}", sum);
  const std::string name(elementTypeName(type));
  errors::raiseStep("KALVEX:function:Overflow", {"sum", exact, name});
}

Column sumAnswer(const AggregatePartial& total) {
  if (!total.type || isFloating(*total.type)) {
    return floatingAnswer(total, sumOf(total));
  }
  const ElementType type = aggregateType(AggregateKind::Sum, *total.type);
  return type == ElementType::UInt64 ? exactSum<std::uint64_t>(total, type)
                                     : exactSum<std::int64_t>(total, type);
}

/// True if the result is missing because values are, or because there are none for an extreme.
bool isMissing(const AggregatePartial& total) {
  if (total.kind == AggregateKind::Count) {
    return false;
  }
  const bool isPoisoned = total.rule == MissingRule::Propagate && total.hasMissing;
  return isPoisoned || (isExtreme(total.kind) && total.count == 0);
}

double varianceOf(const AggregatePartial& total) {
  if (total.count < 2) {
    return kMissing;
  }
  return loadMoments(total).squares / static_cast<double>(total.count - 1);
}

Column truthAnswer(bool value) {
  return scalarColumn(ElementType::Logical, static_cast<std::uint8_t>(value));
}

}  // namespace

void mergePartial(AggregatePartial& partial, const AggregatePartial& later) {
  partial.hasMissing = partial.hasMissing || later.hasMissing;
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
  if (isMissing(total)) {
    const ElementType type = total.type.value_or(ElementType::Double);
    return missingColumn(aggregateType(total.kind, type), 1);
  }
  switch (total.kind) {
    case AggregateKind::Sum:
      return sumAnswer(total);
    case AggregateKind::Mean:
      return floatingAnswer(total, sumOf(total) / static_cast<double>(total.count));
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
  return scalarColumn(ElementType::Int64, total.count);
}

}  // namespace kv::runtime

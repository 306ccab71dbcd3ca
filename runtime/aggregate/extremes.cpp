// Smallest and largest values of numbers and texts. Which rows come together doesn't matter, so
// unlike sums they need no fixed blocks; lanes only allow vector instructions.

#include <arrow/array/data.h>
#include <arrow/type.h>

#include <algorithm>
#include <array>
#include <cassert>
#include <concepts>
#include <cstring>
#include <limits>
#include <memory>
#include <numeric>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "aggregate/Accumulator.h"
#include "aggregate/aggregateTable.h"
#include "aggregate/answers.h"
#include "aggregate/partialWords.h"
#include "aggregate/reductionLanes.h"
#include "aggregate/rowFolds.h"
#include "column/TextView.h"
#include "column/allocate.h"
#include "column/elementTypes.h"

namespace kv::runtime {

namespace {

/// The smallest or largest number.
template <class T, bool isMin>
class ExtremeAccumulator final : public Accumulator {
 public:
  void update(const Column& column, const RowOrdinals&) override {
    const auto values = column.values<T>();
    const std::size_t whole = values.size() / kLanes * kLanes;
    for (std::size_t i = 0; i < whole; i += kLanes) {
      for (std::size_t lane = 0; lane < kLanes; ++lane) {
        take(lane, values[i + lane]);
      }
    }
    for (std::size_t i = whole; i < values.size(); ++i) {
      take(0, values[i]);
    }
    rows_ += column.rows();
  }

  void finish(AggregatePartial& partial) override {
    const std::int64_t missing = std::accumulate(missing_.begin(), missing_.end(), std::int64_t{0});
    const auto best = isMin ? std::ranges::min(best_) : std::ranges::max(best_);
    partial.count = rows_ - missing;
    partial.hasMissing = missing > 0;
    storeExtreme(partial, best);
  }

 private:
  static constexpr T start() {
    using Limits = std::numeric_limits<T>;
    if constexpr (std::floating_point<T>) {
      return isMin ? Limits::infinity() : -Limits::infinity();
    } else {
      return isMin ? Limits::max() : Limits::min();
    }
  }

  /// NaN is neither less nor greater than anything, so it is skipped.
  void take(std::size_t lane, T value) {
    const bool isBetter = isMin ? value < best_[lane] : value > best_[lane];
    best_[lane] = isBetter ? value : best_[lane];
    if constexpr (std::floating_point<T>) {
      missing_[lane] += value != value ? 1 : 0;
    }
  }

  std::array<T, kLanes> best_ = startLanes();
  LaneCounts missing_{};
  std::int64_t rows_ = 0;

  static constexpr std::array<T, kLanes> startLanes() {
    std::array<T, kLanes> lanes{};
    lanes.fill(start());
    return lanes;
  }
};

/// The smallest or largest text by the order of UTF-8 bytes.
template <bool isMin>
class TextExtremeAccumulator final : public Accumulator {
 public:
  void update(const Column& column, const RowOrdinals&) override {
    const TextView texts(column);
    for (std::int64_t row = 0; row < column.rows(); ++row) {
      if (texts.isMissing(row)) {
        hasMissing_ = true;
        continue;
      }
      const std::string_view text = texts[row];
      const bool isBetter = count_ == 0 || (isMin ? text < best_ : text > best_);
      if (isBetter) {
        best_.assign(text);
      }
      ++count_;
    }
  }

  void finish(AggregatePartial& partial) override {
    partial.count = count_;
    partial.hasMissing = hasMissing_;
    partial.text = std::move(best_);
  }

 private:
  std::string best_;
  std::int64_t count_ = 0;
  bool hasMissing_ = false;
};

std::optional<ElementType> typeOfExtreme(ElementType input) { return input; }

template <bool isMin>
std::unique_ptr<Accumulator> makeExtremeAccumulator(MissingRule, ElementType type) {
  if (type == ElementType::String) {
    return std::make_unique<TextExtremeAccumulator<isMin>>();
  }
  return visitNumeric(type, []<class T>() -> std::unique_ptr<Accumulator> {
    return std::make_unique<ExtremeAccumulator<T, isMin>>();
  });
}

/// Requires: both have values.
template <bool isMin>
bool isBetterExtreme(const AggregatePartial& candidate, const AggregatePartial& best) {
  assert(candidate.count > 0 && best.count > 0);
  const auto isBetter = [](const auto& a, const auto& b) { return isMin ? a < b : a > b; };
  if (best.type == ElementType::String) {
    return isBetter(candidate.text, best.text);
  }
  return visitNumeric(*best.type, [&]<class T>() {
    return isBetter(loadExtreme<T>(candidate), loadExtreme<T>(best));
  });
}

template <bool isMin>
void mergeExtremes(AggregatePartial& partial, const AggregatePartial& later) {
  const bool takesLater =
      later.count > 0 && (partial.count == 0 || isBetterExtreme<isMin>(later, partial));
  if (takesLater) {
    partial.words = later.words;
    partial.text = later.text;
  }
  partial.count += later.count;
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

Column answerOfExtreme(const AggregatePartial& total) {
  if (isPoisoned(total) || total.count == 0) {
    return missingAnswer(total);
  }
  if (total.type == ElementType::String) {
    return textAnswer(total);
  }
  if (isFloating(*total.type)) {
    return floatingAnswer(total, loadExtreme<double>(total));
  }
  return visitNumeric(*total.type,
                      [&]<class T>() { return scalarColumn(*total.type, loadExtreme<T>(total)); });
}

/// The extreme of each row; NaN if there is none, or if one is missing and none is skipped.
template <bool isMin>
Column extremeOfRows(std::span<const Column> columns, MissingRule rule) {
  const ElementType type = columns.front().type();
  return visitNumeric(type, [&]<class T>() {
    struct Extreme {
      T value = std::numeric_limits<T>::quiet_NaN();
      bool isSet = false;
      bool isFinal = false;
    };
    const auto found = foldRows<T>(columns, Extreme{}, [rule](Extreme& extreme, T element) {
      const bool isMissing = isMissingElement(element);
      const bool isBetter =
          !extreme.isSet || (isMin ? element < extreme.value : extreme.value < element);
      if (!extreme.isFinal && (isMissing ? rule == MissingRule::Propagate : isBetter)) {
        extreme = {element, true, isMissing};
      }
    });
    std::vector<T> values(found.size());
    std::ranges::transform(found, values.begin(), &Extreme::value);
    return columnOfElements(type, values);
  });
}

}  // namespace

const AggregateFunction kMin{"min",
                             AggregateKind::Min,
                             "smallest value; texts by the order of their bytes",
                             &typeOfExtreme,
                             &makeExtremeAccumulator<true>,
                             &mergeExtremes<true>,
                             &answerOfExtreme,
                             &extremeOfRows<true>,
                             true};
const AggregateFunction kMax{"max",
                             AggregateKind::Max,
                             "largest value; texts by the order of their bytes",
                             &typeOfExtreme,
                             &makeExtremeAccumulator<false>,
                             &mergeExtremes<false>,
                             &answerOfExtreme,
                             &extremeOfRows<false>,
                             true};

}  // namespace kv::runtime

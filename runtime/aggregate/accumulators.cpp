// One accumulator class per way of reducing: sums and moments of floating values in the fixed order
// of blocks and lanes, exact sums of integers, extremes, counts. Which one runs is decided once per
// partition by kind and type, so the inner loops are free of branches on either.

#include "aggregate/accumulators.h"

#include <algorithm>
#include <concepts>
#include <limits>
#include <numeric>
#include <string>
#include <string_view>
#include <vector>

#include "aggregate/BlockedReduction.h"
#include "aggregate/partialWords.h"
#include "column/TextView.h"
#include "column/elementTypes.h"
#include "kernel/blockCasts.h"
#include "kv/runtime/ElementFunctions.h"

namespace kv::runtime {

namespace {

using Accumulator = AggregateState::Accumulator;

/// Calls `visit(values, firstRow, count)` for runs of a numeric column as doubles.
template <class Visitor>
void forDoubles(const Column& column, Visitor&& visit) {
  if (column.type() == ElementType::Double) {
    visit(column.values<double>().data(), std::int64_t{0}, column.rows());
    return;
  }
  const BlockCast cast = blockCast(column.type(), ElementType::Double);
  std::array<double, kBlockElements> converted;
  visitNumeric(column.type(), [&]<class T>() {
    const auto values = column.values<T>();
    for (std::size_t first = 0; first < values.size(); first += kBlockElements) {
      const std::size_t count = std::min(kBlockElements, values.size() - first);
      cast(values.data() + first, converted.data(), count);
      visit(converted.data(), static_cast<std::int64_t>(first), static_cast<std::int64_t>(count));
    }
  });
}

/// Sums of floating values, and moments of any numbers, in the fixed order of blocks.
template <class Lanes, void (*store)(AggregatePartial&, const typename Lanes::Value&)>
class BlockedAccumulator final : public Accumulator {
 public:
  void update(const Column& column, const RowOrdinals& ordinals) override {
    forDoubles(column, [&](const double* values, std::int64_t firstRow, std::int64_t count) {
      reduction_.add(values, ordinals, firstRow, count);
    });
  }

  void finish(AggregatePartial& partial) override { store(partial, reduction_.finish()); }

 private:
  BlockedReduction<Lanes> reduction_;
};

template <MissingRule rule>
using SumAccumulator = BlockedAccumulator<SumLanes<rule>, storeSum>;
template <MissingRule rule>
using MomentAccumulator = BlockedAccumulator<MomentLanes<rule>, storeMoments>;

/// Exact sums of integers and logical values, for which order doesn't matter.
class IntegerSumAccumulator final : public Accumulator {
 public:
  void update(const Column& column, const RowOrdinals&) override {
    visitNumeric(column.type(), [&]<class T>() {
      if constexpr (std::integral<T>) {
        sum_ += sumOf(column.values<T>());
      }
    });
    count_ += column.rows();
  }

  void finish(AggregatePartial& partial) override {
    storeInteger(partial, sum_);
    partial.count = count_;
  }

 private:
  /// For up to 32 bits, a block can't overflow 64 bits; wider integers are added in 128 bits.
  template <class T>
  static WideInteger sumOf(std::span<const T> values) {
    using Sum = std::conditional_t<sizeof(T) < 8, std::int64_t, WideInteger>;
    WideInteger total = 0;
    for (; !values.empty(); values = values.subspan(std::min(kBlockElements, values.size()))) {
      Sum sum = 0;
      for (const T value : values.first(std::min(kBlockElements, values.size()))) {
        sum += value;
      }
      total += sum;
    }
    return total;
  }

  WideInteger sum_ = 0;
  std::int64_t count_ = 0;
};

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

/// Counts the values that aren't missing.
class CountAccumulator final : public Accumulator {
 public:
  void update(const Column& column, const RowOrdinals&) override {
    count_ += column.rows() - missingOf(column);
  }

  void finish(AggregatePartial& partial) override { partial.count = count_; }

 private:
  static std::int64_t missingOf(const Column& column) {
    if (column.type() == ElementType::String) {
      return column.data()->GetNullCount();
    }
    return visitNumeric(column.type(), [&]<class T>() {
      std::int64_t missing = 0;
      if constexpr (std::floating_point<T>) {
        for (const T value : column.values<T>()) {
          missing += value != value ? 1 : 0;
        }
      }
      return missing;
    });
  }

  std::int64_t count_ = 0;
};

template <bool isMin>
std::unique_ptr<Accumulator> makeExtreme(ElementType type) {
  if (type == ElementType::String) {
    return std::make_unique<TextExtremeAccumulator<isMin>>();
  }
  return visitNumeric(type, []<class T>() -> std::unique_ptr<Accumulator> {
    return std::make_unique<ExtremeAccumulator<T, isMin>>();
  });
}

template <MissingRule rule>
std::unique_ptr<Accumulator> makeFor(AggregateKind kind, ElementType type) {
  switch (kind) {
    case AggregateKind::Sum:
    case AggregateKind::Mean:
      if (isFloating(type)) {
        return std::make_unique<SumAccumulator<rule>>();
      }
      return std::make_unique<IntegerSumAccumulator>();
    case AggregateKind::Any:
    case AggregateKind::All:
      return std::make_unique<IntegerSumAccumulator>();
    case AggregateKind::Std:
    case AggregateKind::Var:
      return std::make_unique<MomentAccumulator<rule>>();
    case AggregateKind::Min:
      return makeExtreme<true>(type);
    case AggregateKind::Max:
      return makeExtreme<false>(type);
    case AggregateKind::Count:
      break;
  }
  return std::make_unique<CountAccumulator>();
}

}  // namespace

std::unique_ptr<Accumulator> makeAccumulator(AggregateKind kind, MissingRule rule,
                                             ElementType type) {
  aggregateType(kind, type);  // refuses undefined combinations
  return rule == MissingRule::Skip ? makeFor<MissingRule::Skip>(kind, type)
                                   : makeFor<MissingRule::Propagate>(kind, type);
}

}  // namespace kv::runtime

#include "aggregate/sums.h"

#include <algorithm>
#include <concepts>
#include <span>
#include <type_traits>

#include "aggregate/BlockedAccumulator.h"
#include "aggregate/partialWords.h"
#include "column/elementTypes.h"

namespace kv::runtime {

namespace {

/// Exact sums of integers and logical values, for which order doesn't matter.
class IntegerSumAccumulator final : public Accumulator {
 public:
  void update(const Column& column, const RowOrdinals&) override {
    visitNumeric(column.type(), [&]<class T>() {
      if constexpr (std::integral<T>) {
        sum_ += sumOfBlocks(column.values<T>());
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
  static WideInteger sumOfBlocks(std::span<const T> values) {
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

}  // namespace

std::unique_ptr<Accumulator> makeSumAccumulator(MissingRule rule, ElementType type) {
  if (isFloating(type)) {
    return makeBlocked<SumLanes, storeSum>(rule);
  }
  return std::make_unique<IntegerSumAccumulator>();
}

void mergeSums(AggregatePartial& partial, const AggregatePartial& later) {
  if (isFloating(*partial.type)) {
    CompensatedSum sum = loadSum(partial);
    sum.merge(loadSum(later));
    storeSum(partial, sum);
  } else {
    storeInteger(partial, loadInteger(partial) + loadInteger(later));
    partial.count += later.count;
  }
}

double sumOf(const AggregatePartial& total) {
  if (!total.type) {
    return 0;
  }
  return isFloating(*total.type) ? loadSum(total).value() : static_cast<double>(loadInteger(total));
}

}  // namespace kv::runtime

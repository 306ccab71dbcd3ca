#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>

#include "aggregate/Accumulator.h"
#include "aggregate/BlockedReduction.h"
#include "column/elementTypes.h"
#include "kernel/blockCasts.h"
#include "kv/runtime/ElementFunctions.h"

namespace kv::runtime {

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

/// Decides once per partition how missing values count, so the inner loops don't branch on it.
template <template <MissingRule> class Lanes, auto store>
std::unique_ptr<Accumulator> makeBlocked(MissingRule rule) {
  if (rule == MissingRule::Skip) {
    return std::make_unique<BlockedAccumulator<Lanes<MissingRule::Skip>, store>>();
  }
  return std::make_unique<BlockedAccumulator<Lanes<MissingRule::Propagate>, store>>();
}

}  // namespace kv::runtime

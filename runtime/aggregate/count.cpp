#include <concepts>
#include <memory>
#include <optional>

#include <arrow/array/data.h>

#include "aggregate/Accumulator.h"
#include "aggregate/aggregateTable.h"
#include "aggregate/rowFolds.h"
#include "column/allocate.h"
#include "column/elementTypes.h"

namespace kv::runtime {

namespace {

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

std::optional<ElementType> typeOfCount(ElementType) { return ElementType::Int64; }

std::unique_ptr<Accumulator> makeCountAccumulator(MissingRule, ElementType) {
  return std::make_unique<CountAccumulator>();
}

void mergeCounts(AggregatePartial& partial, const AggregatePartial& later) {
  partial.count += later.count;
}

Column answerOfCount(const AggregatePartial& total) {
  return scalarColumn(ElementType::Int64, total.count);
}

Column countOfRows(std::span<const Column> columns, MissingRule) {
  return visitNumeric(columns.front().type(), [&]<class T>() {
    return columnOfElements(ElementType::Int64, countsOfRows<T>(columns, MissingRule::Skip));
  });
}

}  // namespace

const AggregateFunction kCount{
    "count",        AggregateKind::Count,  "number of values that aren't missing, an integer",
    &typeOfCount,   &makeCountAccumulator, &mergeCounts,
    &answerOfCount, &countOfRows};

}  // namespace kv::runtime

#include <string>
#include <utility>

#include "aggregate/Accumulator.h"
#include "aggregate/aggregateTable.h"
#include "column/Validity.h"
#include "column/elementTypes.h"
#include "kv/errors/StepError.h"
#include "kv/runtime/Aggregates.h"
#include "kv/runtime/selectRows.h"

namespace kv::runtime {

AggregateState::AggregateState(AggregateKind kind, MissingRule rule) {
  partial_.kind = kind;
  partial_.rule = rule;
}

AggregateState::~AggregateState() = default;
AggregateState::AggregateState(AggregateState&&) noexcept = default;
AggregateState& AggregateState::operator=(AggregateState&&) noexcept = default;

void AggregateState::update(const Column& column, const RowOrdinals& ordinals) {
  if (column.rows() != ordinals.rows()) {
    errors::raiseStep(
        "KALVEX:function:RowCounts",
        {nameOf(partial_.kind), std::to_string(ordinals.rows()), std::to_string(column.rows())});
  }
  if (!accumulator_) {
    aggregateType(partial_.kind, column.type());  // refuses undefined combinations
    accumulator_ = aggregateFunction(partial_.kind).accumulator(partial_.rule, column.type());
    partial_.type = column.type();
  }
  if (column.type() != *partial_.type) {
    throwMixedTypes(partial_.kind, *partial_.type, column.type());
  }
  const bool mayHoldMissing = isTime(column.type()) || (column.isNullable() && column.hasNulls());
  if (mayHoldMissing) {
    const Chunk values = selectValid(column, ordinals);
    hasMissing_ = hasMissing_ || values.rows() < column.rows();
    accumulator_->update(values.columns.front(), values.ordinals);
  } else {
    accumulator_->update(column, ordinals);
  }
}

AggregatePartial AggregateState::finish() {
  if (accumulator_) {
    accumulator_->finish(partial_);
  }
  accumulator_.reset();
  partial_.hasMissing = partial_.hasMissing || hasMissing_;
  return std::move(partial_);
}

}  // namespace kv::runtime

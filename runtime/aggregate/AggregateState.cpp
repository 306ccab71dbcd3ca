#include <fmt/format.h>

#include <algorithm>
#include <string>
#include <utility>

#include "aggregate/accumulators.h"
#include "column/Validity.h"
#include "column/elementTypes.h"
#include "kv/errors/StepError.h"
#include "kv/runtime/Aggregates.h"
#include "kv/runtime/selectRows.h"

namespace kv::runtime {

namespace {

using enum AggregateKind;

constexpr AggregateFunction kAggregateFunctions[] = {
    {"sum", Sum, "sum; 0 for no rows; exact in 64 bits for integers and logicals"},
    {"mean", Mean, "arithmetic mean; for logicals the share of true"},
    {"min", Min, "smallest value; texts by the order of their bytes"},
    {"max", Max, "largest value; texts by the order of their bytes"},
    {"count", Count, "number of values that aren't missing, an integer"},
    {"std", Std, "standard deviation, with n - 1"},
    {"var", Var, "variance, with n - 1"},
    {"any", Any, "true if any value is true"},
    {"all", All, "true if all values are true"},
};

bool isDefined(AggregateKind kind, ElementType input) {
  if (kind == Any || kind == All) {
    return input == ElementType::Logical;
  }
  return input != ElementType::String || kind == Min || kind == Max || kind == Count;
}

}  // namespace

std::string nameOf(AggregateKind kind) {
  return std::string(std::ranges::find(kAggregateFunctions, kind, &AggregateFunction::kind)->name);
}

void throwMixedTypes(AggregateKind kind, ElementType a, ElementType b) {
  const std::string types = fmt::format("{} and {}", elementTypeName(a), elementTypeName(b));
  errors::raiseStep("KALVEX:function:BadTypes", {nameOf(kind), types});
}

std::span<const AggregateFunction> aggregateFunctions() { return kAggregateFunctions; }

const AggregateFunction* findAggregateFunction(std::string_view name) {
  const auto* found = std::ranges::find(kAggregateFunctions, name, &AggregateFunction::name);
  return found == std::end(kAggregateFunctions) ? nullptr : found;
}

ElementType aggregateType(AggregateKind kind, ElementType input) {
  if (!isDefined(kind, input)) {
    const std::string type(elementTypeName(input));
    errors::raiseStep("KALVEX:function:BadTypes", {nameOf(kind), type});
  }
  switch (kind) {
    case Min:
    case Max:
    case Any:
    case All:
      return input;
    case Count:
      return ElementType::Int64;
    case Sum:
      if (isFloating(input)) {
        return input;
      }
      return isInteger(input) && !isSigned(input) ? ElementType::UInt64 : ElementType::Int64;
    case Mean:
    case Std:
    case Var:
      break;
  }
  return input == ElementType::Single ? ElementType::Single : ElementType::Double;
}

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
    accumulator_ = makeAccumulator(partial_.kind, partial_.rule, column.type());
    partial_.type = column.type();
  }
  if (column.type() != *partial_.type) {
    throwMixedTypes(partial_.kind, *partial_.type, column.type());
  }
  if (column.isNullable() && column.hasNulls()) {
    const Chunk values = selectValid(column, ordinals);
    hasNulls_ = true;
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
  partial_.hasMissing = partial_.hasMissing || hasNulls_;
  return std::move(partial_);
}

}  // namespace kv::runtime

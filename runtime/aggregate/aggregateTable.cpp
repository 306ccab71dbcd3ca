#include "aggregate/aggregateTable.h"

#include <fmt/format.h>

#include <algorithm>
#include <cassert>
#include <cstddef>

#include "kv/errors/StepError.h"

namespace kv::runtime {

std::span<const AggregateFunction> aggregateFunctions() {
  static const AggregateFunction table[] = {kSum, kMean, kMin, kMax,  kCount, kStd,
                                            kVar, kAny,  kAll, kStdP, kVarP};
  return table;
}

const AggregateFunction* findAggregateFunction(std::string_view name) {
  const auto table = aggregateFunctions();
  const auto found = std::ranges::find(table, name, &AggregateFunction::name);
  return found == table.end() ? nullptr : &*found;
}

const AggregateFunction& aggregateFunction(AggregateKind kind) {
  const AggregateFunction& function = aggregateFunctions()[static_cast<std::size_t>(kind)];
  assert(function.kind == kind);
  return function;
}

std::string nameOf(AggregateKind kind) { return std::string(aggregateFunction(kind).name); }

void throwMixedTypes(AggregateKind kind, ElementType a, ElementType b) {
  const std::string types = fmt::format("{} and {}", elementTypeName(a), elementTypeName(b));
  errors::raiseStep("KALVEX:function:BadTypes", {nameOf(kind), types});
}

ElementType aggregateType(AggregateKind kind, ElementType input) {
  const auto type = aggregateFunction(kind).type(input);
  if (!type) {
    errors::raiseStep("KALVEX:function:BadTypes",
                      {nameOf(kind), std::string(elementTypeName(input))});
  }
  return *type;
}

void mergePartial(AggregatePartial& partial, const AggregatePartial& later) {
  partial.hasMissing = partial.hasMissing || later.hasMissing;
  aggregateFunction(partial.kind).merge(partial, later);
}

Column answerOf(const AggregatePartial& total) {
  return aggregateFunction(total.kind).answer(total);
}

}  // namespace kv::runtime

#pragma once

#include <memory>
#include <string>

#include "kv/runtime/Aggregates.h"

namespace kv::runtime {

/// Accumulates the values of one partition for one kind of aggregate and one type of column.
class AggregateState::Accumulator {
 public:
  virtual ~Accumulator() = default;

  virtual void update(const Column& column, const RowOrdinals& ordinals) = 0;

  /// Writes count, words, text and `hasMissing`.
  virtual void finish(AggregatePartial& partial) = 0;
};

/// The accumulator for an aggregate of columns of type `type`.
///
/// Errors: those of `aggregateType`.
std::unique_ptr<AggregateState::Accumulator> makeAccumulator(AggregateKind kind, MissingRule rule,
                                                             ElementType type);

std::string nameOf(AggregateKind kind);

/// Errors: "KALVEX:function:BadTypes" with the aggregate and both types.
[[noreturn]] void throwMixedTypes(AggregateKind kind, ElementType a, ElementType b);

/// Merges the contribution of a later partition into an earlier one of the same kind, rule and
/// type.
void mergePartial(AggregatePartial& partial, const AggregatePartial& later);

/// The result from the contributions of all partitions.
Column answerOf(const AggregatePartial& total);

}  // namespace kv::runtime

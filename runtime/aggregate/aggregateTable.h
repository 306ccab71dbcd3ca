#pragma once

#include <string>

#include "kv/runtime/Aggregates.h"

namespace kv::runtime {

// The rows of the table of aggregates, each in a file of its own.

extern const AggregateFunction kSum;    // sum.cpp
extern const AggregateFunction kMean;   // mean.cpp
extern const AggregateFunction kMin;    // extremes.cpp
extern const AggregateFunction kMax;    // extremes.cpp
extern const AggregateFunction kCount;  // count.cpp
extern const AggregateFunction kStd;    // variance.cpp
extern const AggregateFunction kVar;    // variance.cpp
extern const AggregateFunction kAny;    // truth.cpp
extern const AggregateFunction kAll;    // truth.cpp
extern const AggregateFunction kStdP;   // variance.cpp
extern const AggregateFunction kVarP;   // variance.cpp

const AggregateFunction& aggregateFunction(AggregateKind kind);

std::string nameOf(AggregateKind kind);

/// Errors: "KALVEX:function:BadTypes" with the aggregate and both types.
[[noreturn]] void throwMixedTypes(AggregateKind kind, ElementType a, ElementType b);

/// Merges the contribution of a later partition into an earlier one of the same kind, rule and
/// type.
void mergePartial(AggregatePartial& partial, const AggregatePartial& later);

/// The result from the contributions of all partitions.
Column answerOf(const AggregatePartial& total);

}  // namespace kv::runtime

#pragma once

#include <memory>

#include "aggregate/Accumulator.h"

namespace kv::runtime {

// Sums, from which `sum`, `mean`, `any` and `all` have their answers: with their rounding error for
// floating values, exact for integers and logicals.

std::unique_ptr<Accumulator> makeSumAccumulator(MissingRule rule, ElementType type);

void mergeSums(AggregatePartial& partial, const AggregatePartial& later);

/// The sum as a double; 0 if no partition had a chunk.
double sumOf(const AggregatePartial& total);

}  // namespace kv::runtime

#pragma once

#include <optional>
#include <vector>

#include "kv/runtime/Aggregates.h"

namespace kv::runtime {

// What several aggregates share of their type rules and answers.

/// Single for single and double for other numbers; none for texts and times.
std::optional<ElementType> floatingType(ElementType input);

/// True if the values of a partition were missing and the rule propagates it.
bool isPoisoned(const AggregatePartial& total);

/// The missing value of the result's type.
Column missingAnswer(const AggregatePartial& total);

/// The results for the columns of an array of these dimensions, from the contributions of all
/// partitions to each: one row.
///
/// Errors: those of combinePartials(); "KALVEX:array:NoRows" with the aggregate if `form` needs
///         rows.
Chunk answersOf(std::vector<AggregatePartial> totals, const AggregateForm& form,
                Dimensions trailing);

/// A result that is computed in double. All zeros become +0, all NaNs the quiet NaN.
Column floatingAnswer(const AggregatePartial& total, double value);

}  // namespace kv::runtime

#pragma once

#include "plan/Rule.h"

/// The rules of the optimizer, one file each. To add one: write its file, declare it below, and add
/// it to the table in rules.cpp.
namespace kv::runtime {

/// The rules that are switched on: all but those that the environment's KV_OPTIMIZER switches off,
/// such as "-columns".
/// Errors: "KALVEX:optimizer:UnknownRule" with what isn't the switch of a rule, and all switches
///         (StepError).
Rules rulesInForce();

/// Reads from a source only the columns that a step needs. If a step needs a column that the source
/// doesn't have, all are read, so that the error of that step can name them.
void readNeededColumns(PassGraph& graph);

/// Runs several operations by the same keys as one step.
void shareGroups(PassGraph& graph);

/// Lets a source leave out rows that a filter would drop: where all rows go through filters before
/// they are used otherwise, the read gets the conditions `column op value` that all of these rows
/// must fulfil. The filters stay.
void skipRowGroups(PassGraph& graph);

}  // namespace kv::runtime

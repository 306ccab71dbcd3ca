#pragma once

#include "plan/Plan.h"

namespace kv::runtime {

/// Refuses a plan that needs a column which a source doesn't have. Opens nothing.
///
/// Errors: "KALVEX:datastore:MissingColumn" with the source, the column, and the columns
///         there are.
void throwIfColumnsAreMissing(const Plan& plan);

}  // namespace kv::runtime

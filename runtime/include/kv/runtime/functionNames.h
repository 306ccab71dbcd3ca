#pragma once

#include <string>
#include <string_view>

#include "kv/runtime/Aggregates.h"

/// Names of the built-in functions in a session; function handles with these names are recognised
/// when a plan is made and run as kernels.
namespace kv::runtime {

/// "kv.element.plus" and so on.
std::string elementFunctionName(std::string_view function);

/// "kv.aggregate.mean", followed by ".propagate" for the form that propagates missing values,
/// ".whole" for that of all columns, and ".rows" for that which needs rows.
std::string aggregateFunctionName(std::string_view aggregate, const AggregateForm& form);

/// A uniform random number for each row of its one input, from the stream in force, which is that
/// of its partition.
inline constexpr std::string_view kRandomRowsFunction = "kv.random.rows";

}  // namespace kv::runtime

#pragma once

#include <cstddef>
#include <vector>

#include "kv/host/values.h"
#include "operator/OpSpec.h"

/// What operations do to materialised values that aren't known to be rows of a source.
namespace kv::runtime {

/// Runs an operation once, in the client, as its `wholeRun` says.
///
/// `factory`: its processor factory, with the functions.
/// Result: a value for each output.
/// Errors: those of the functions; "KALVEX:array:NotLogical"; those of the operator.
std::vector<host::Value> runWhole(const OpSpec& spec, const kxArray* factory,
                                  const std::vector<const kxArray*>& inputs);

/// Calls the second function of a reduction on partial results, one list for each output.
std::vector<host::Value> reducePartials(const kxArray* factory, std::size_t numOutputs,
                                        const std::vector<const kxArray*>& partials);

}  // namespace kv::runtime

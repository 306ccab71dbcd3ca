#pragma once

#include <cstddef>
#include <vector>

#include "kv/host/values.h"
#include "plan/OpSpec.h"

/// What operations do to whole values that aren't known to be rows of a source: each a RunWhole.
namespace kv::runtime {

/// Calls the function of an operation, or its factory, on the values as they are.
std::vector<host::Value> callOnWholes(const OpSpec& spec, const kxArray* factory,
                                      const std::vector<const kxArray*>& inputs);

/// The same for a function of matching rows, which may take only some rows at a time.
std::vector<host::Value> callOnRows(const OpSpec& spec, const kxArray* factory,
                                    const std::vector<const kxArray*>& inputs);

/// The same for a function that must return logical values.
/// Errors: "KALVEX:array:NotLogical".
std::vector<host::Value> callOnRowsForLogical(const OpSpec& spec, const kxArray* factory,
                                              const std::vector<const kxArray*>& inputs);

/// Calls the first function of a reduction on the values, and the second on what it returns.
std::vector<host::Value> callAndReduce(const OpSpec& spec, const kxArray* factory,
                                       const std::vector<const kxArray*>& inputs);

/// Runs the operator of an operation that calls no function, with the values as chunks.
std::vector<host::Value> runOperatorOnce(const OpSpec& spec, const kxArray* factory,
                                         const std::vector<const kxArray*>& inputs);

/// The values themselves, one for each output; of a choice, the one that was chosen.
std::vector<host::Value> passOn(const OpSpec& spec, const kxArray* factory,
                                const std::vector<const kxArray*>& inputs);

/// Calls the second function of a reduction on partial results, one list for each output.
std::vector<host::Value> reducePartials(const kxArray* factory, std::size_t numOutputs,
                                        const std::vector<const kxArray*>& partials);

}  // namespace kv::runtime

#pragma once

#include <vector>

#include "kv/host/values.h"
#include "operator/OpSpec.h"

namespace kv::runtime {

/// Runs a flow operator in the client on materialised values, as it runs on the rows of one
/// partition. Columns of several rows are rows; any other value is one for all of them.
///
/// Result, errors: as of runWhole().
std::vector<host::Value> runFlow(const OpSpec& spec, const kxArray* factory,
                                 const std::vector<const kxArray*>& inputs);

/// Hands materialised values to a function as the only chunk of a partition.
/// Result: whether the function has asked for no more.
/// Errors: those of callOnPartition().
std::vector<host::Value> handOver(const OpSpec& spec, const kxArray* factory,
                                  const std::vector<const kxArray*>& inputs);

}  // namespace kv::runtime

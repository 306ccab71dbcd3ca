#pragma once

#include "kv/host/session.h"

/// The groups of host classes and functions of the runtime, each defined by one function.
namespace kv::runtime {

void defineArrays(host::Session& session);            ///< PartitionedArray and related; gather
void defineOperations(host::Session& session);        ///< operations of the lazy graph
void defineDirectEvaluation(host::Session& session);  ///< operations that are computed at once
void defineTasks(host::Session& session);             ///< from a closure to execution tasks
void defineProcessors(host::Session& session);        ///< from builders to a stage
void defineExecutors(host::Session& session);         ///< executors of task graphs
void defineInvalidArrays(host::Session& session);     ///< placeholders of arrays of other releases
void definePartitioning(host::Session& session);      ///< partitions; the strategy of a datastore
void defineConcatenation(host::Session& session);     ///< the strategy of joined arrays
void defineDatastores(host::Session& session);        ///< sources of rows
void defineExceptions(host::Session& session);        ///< errors of users' functions
void defineContainers(host::Session& session);        ///< containers.Map, table
void defineTimes(host::Session& session);             ///< datetime, duration
void defineGraphValues(host::Session& session);       ///< digraph, categorical
void defineRandom(host::Session& session);            ///< random streams
void defineFunctions(host::Session& session);  ///< built-in functions, copy, version, reports

}  // namespace kv::runtime

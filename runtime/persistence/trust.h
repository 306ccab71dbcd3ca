#pragma once

#include "driver/ClosureTasks.h"
#include "kv/host/session.h"
#include "kv/host/values.h"

/// Loaded objects may be inspected, planned and saved again. They are evaluated only if they were
/// loaded with trust, because their operations read files and call functions.
namespace kv::runtime {

/// Declares which methods of the core's classes evaluate the object on which they are called, or
/// would return a copy without the mark.
void guardCoreEvaluation(host::Session& session);

/// The same for the runtime's classes.
void guardRuntimeEvaluation(host::Session& session);

/// Refuses to run the tasks of a graph in which an operation was loaded without trust.
/// Errors: "KALVEX:load:NotTrusted" with a description of the operation, as in plans.
void requireTrustedTasks(const kxArray* taskGraph, const ClosureTasks& entries);

}  // namespace kv::runtime

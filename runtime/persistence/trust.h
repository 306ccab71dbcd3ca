#pragma once

#include "kv/host/session.h"
#include "kv/host/values.h"
#include "plan/ClosureTasks.h"

/// What a file brought may be looked at, planned and saved again. It is evaluated only if whoever
/// opened it vouched for it: its operations read files and call functions.
namespace kv::runtime {

/// Declares which methods of the core's classes evaluate the object that they are called on, or
/// would give a copy without the mark.
void guardCoreEvaluation(host::Session& session);

/// The same for the runtime's classes.
void guardRuntimeEvaluation(host::Session& session);

/// Refuses to run the tasks of a graph in which an operation was loaded without trust.
/// Errors: "KALVEX:load:NotTrusted" with what the operation does, as plans show it.
void requireTrustedTasks(const kxArray* taskGraph, const ClosureTasks& entries);

}  // namespace kv::runtime

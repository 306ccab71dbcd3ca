#pragma once

#include "driver/PlanHandles.h"

namespace kv::runtime {

/// Reads a task graph into a plan: a LazyTaskGraph whose tasks the runtime made.
///
/// `asked`, `others`: object arrays of promises; those of `others` are completed if it costs no
/// work that `asked` doesn't need.
/// Errors: "KALVEX:array:NotRunnable" with the class of an operation that brings no runnable task.
ClientPlan readTaskGraph(const kxArray* taskGraph, const kxArray* asked, const kxArray* others);

/// Reads one task, an ExecutionTask whose inputs are there; it is task 0 of the plan. Its outputs
/// are the results, without promises.
ClientPlan readTask(const host::Value& task);

}  // namespace kv::runtime

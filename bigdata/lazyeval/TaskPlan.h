#pragma once

#include <cstddef>
#include <span>
#include <unordered_map>
#include <vector>

#include "kcos/interface.h"
#include "ki/KalvexManagedPtr.h"
#include "kx/array.h"
#include "lazyeval/lazyGraph.h"

namespace bigdata::lazyeval {

/// Host class of the tasks.
inline constexpr kcos::NameRef kExecutionTaskClass =
    "kalvex.bigdata.internal.executor.ExecutionTask";

/// A closure and the task that produces its outputs, as a scalar array.
struct ClosureTask {
  ki::KalvexManagedPtr<Closure> closure;
  matrix::ArrayPtr task;
};

/// The result of planning: each closure once, after all that it depends on.
struct TaskPlan {
  std::vector<ClosureTask> closureTasks;
  matrix::ArrayPtr allTasks;  ///< n-by-1, in the order of creation
};

/// Plans `closures` and everything that must run before them; see LazyTaskGraph for the errors.
///
/// Cost: one call of the host per closure, and one before the first.
TaskPlan makeTaskPlan(std::span<const ki::KalvexManagedPtr<Closure>> closures);

/// An n-by-1 array of tasks.
matrix::ArrayPtr makeTaskArray(std::span<const kcos::COSInterfacePtr> tasks);

}  // namespace bigdata::lazyeval

#pragma once

#include <vector>

#include "ki/KalvexManagedObject.h"
#include "ki/KalvexManagedPtr.h"
#include "ki/PropertyArrayPtr.h"
#include "lazyeval/lazyGraph.h"

namespace bigdata::lazyeval {

struct TaskPlan;

/// The execution tasks of the closures whose results are requested: a finished record of the tasks
/// and two maps between closures and tasks.
///
/// Nothing is optimised here. The host side's `createExecutionTasks` decides which tasks a closure
/// becomes; it is called closure by closure in dependency order. Completed work isn't planned
/// again.
///
/// The maps have one entry per closure, in the same order: entry i of both is about the same
/// closure. Ids aren't identity, so code that may meet a closure next to its loaded copy must go by
/// entries and not by keys.
class LazyTaskGraph final : public ki::KalvexManagedObject {
 public:
  static constexpr kcos::NameRef kHostClassName = "kalvex.bigdata.internal.lazyeval.LazyTaskGraph";

  /// Empty, for load.
  explicit LazyTaskGraph(const ki::KalvexManagedConstructInfo& info);

  /// Plans `closures` and everything that must run before them.
  ///
  /// Errors: those of the walk (see ClosureDependencyWalker) and of the host's calls; an internal
  ///         error if `createExecutionTasks` has no body, returns no task for the first closure, or
  ///         adds a closure to the graph that the walk didn't see;
  ///         "KALVEX:validateattributes:invalidType" if it returns anything but tasks.
  LazyTaskGraph(const ki::KalvexManagedConstructInfo& info,
                std::vector<ki::KalvexManagedPtr<Closure>> closures);

  /// n-by-1: every task, in the order of creation.
  const kxArray* getTasks() const { return tasks_.get(); }
  void setTasks(matrix::ArrayPtr tasks);

  /// m-by-1: the output task of each closure that was requested or whose output is broadcast.
  const kxArray* getOutputTasks() const { return outputTasks_.get(); }
  void setOutputTasks(matrix::ArrayPtr tasks);

  /// containers.Map from the id of a closure to its output task.
  const kxArray* getClosureToTaskMap() const { return closureToTaskMap_.get(); }
  void setClosureToTaskMap(matrix::ArrayPtr map);

  /// containers.Map from the id of an output task to its closure.
  const kxArray* getTaskToClosureMap() const { return taskToClosureMap_.get(); }
  void setTaskToClosureMap(matrix::ArrayPtr map);

 private:
  ki::PropertyArrayPtr tasks_;
  ki::PropertyArrayPtr outputTasks_;
  ki::PropertyArrayPtr closureToTaskMap_;
  ki::PropertyArrayPtr taskToClosureMap_;
};

}  // namespace bigdata::lazyeval

#pragma once

#include <vector>

#include "ki/KalvexManagedObject.h"
#include "ki/KalvexManagedPtr.h"
#include "ki/PropertyArrayPtr.h"
#include "lazyeval/lazyGraph.h"

namespace bigdata::lazyeval {

struct TaskPlan;

/// The execution tasks of the closures whose results somebody wants: a finished record, with the
/// tasks and two maps between closures and tasks.
///
/// Nothing is optimised here: which tasks a closure turns into is up to the host side's
/// `createExecutionTasks`, which is asked closure by closure in dependency order. Work that is done
/// isn't planned again.
///
/// The maps have an entry a closure, in one order: entry i of both is about the same one. Ids
/// aren't identity, so whoever may meet a closure beside its loaded copy goes by entries and not by
/// keys.
class LazyTaskGraph final : public ki::KalvexManagedObject {
 public:
  static constexpr kcos::NameRef kHostClassName = "kalvex.bigdata.internal.lazyeval.LazyTaskGraph";

  /// Empty, for load.
  explicit LazyTaskGraph(const ki::KalvexManagedConstructInfo& info);

  /// Plans `closures` and all that still has to run before them.
  ///
  /// Errors: those of the walk (see ClosureDependencyWalker) and of the host's calls; an internal
  ///         error if `createExecutionTasks` has no body, gives no task for the first closure, or
  ///         brings a closure into the graph that the walk didn't see;
  ///         "KALVEX:validateattributes:invalidType" if what it gives aren't tasks.
  LazyTaskGraph(const ki::KalvexManagedConstructInfo& info,
                std::vector<ki::KalvexManagedPtr<Closure>> closures);

  /// n-by-1: every task, in the order of creation.
  const kxArray* getTasks() const { return tasks_.get(); }
  void setTasks(matrix::ArrayPtr tasks);

  /// m-by-1: the output task of each closure that was asked for, or whose output is broadcast.
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

#include "lazyeval/LazyTaskGraph.h"

#include <cassert>
#include <string>
#include <unordered_set>
#include <utility>

#include "executor/PartitionStrategy.h"
#include "ki/ClassKcosRegistration.h"
#include "ki/CosClassBuilder.h"
#include "ki/conversions.h"
#include "ki/hostCalls.h"
#include "kx/string.h"
#include "lazyeval/Closure.h"
#include "lazyeval/TaskPlan.h"
#include "util/CosClientTraits.h"

namespace bigdata::lazyeval {

using ki::KalvexManagedPtr;
using matrix::ArrayPtr;

namespace {

bool hasBroadcastOutput(const ArrayPtr& task) {
  const auto strategy = ki::fromArray<KalvexManagedPtr<executor::PartitionStrategy>>(
      ki::readHostProperty(task.get(), "OutputPartitionStrategy").get());
  return strategy && strategy->getIsBroadcast();
}

std::u16string taskId(const ArrayPtr& task) {
  return ki::fromArray<std::u16string>(ki::readHostProperty(task.get(), "Id").get());
}

/// The tasks whose output leaves the graph: those of requested closures and broadcast ones.
ArrayPtr collectOutputTasks(const TaskPlan& plan,
                            const std::vector<KalvexManagedPtr<Closure>>& requested) {
  std::unordered_set<const Closure*> isRequested;
  for (const KalvexManagedPtr<Closure>& closure : requested) {
    isRequested.insert(closure.get());
  }
  std::vector<kcos::COSInterfacePtr> tasks;
  for (const auto& [closure, task] : plan.closureTasks) {
    if (isRequested.contains(closure.get()) || hasBroadcastOutput(task)) {
      tasks.push_back(kcos::omGetArrayElement(task.get(), 0));
    }
  }
  return makeTaskArray(tasks);
}

/// A containers.Map. A single key is passed as a cell of characters; more keys or none as strings.
///
/// Requires: an n-by-1 string array and an n-by-1 cell.
ArrayPtr makeMap(ArrayPtr keys, const ArrayPtr& values) {
  assert(kxGetNumberOfElements(keys.get()) == kxGetNumberOfElements(values.get()));
  if (kxGetNumberOfElements(values.get()) == 1) {
    ArrayPtr characters = Torvane::String::convertStringsToChars(keys.get());
    keys = matrix::from_kalvex(kxCreateCellMatrix(1, 1));
    kxSetCell(keys.get(), 0, characters.release());
  }
  return ki::callHost("containers.Map", {keys.get(), values.get()});
}

/// A containers.Map with one entry for each closure of the plan.
template <class KeyOf, class ValueOf>
ArrayPtr makeMapOfPlan(const TaskPlan& plan, KeyOf keyOf, ValueOf valueOf) {
  const std::size_t count = plan.closureTasks.size();
  ArrayPtr keys = Torvane::String::createStringArray(count, 1);
  const ArrayPtr values = matrix::from_kalvex(kxCreateCellMatrix(count, 1));
  for (std::size_t i = 0; i < count; ++i) {
    Torvane::String::setString(keys.get(), i, keyOf(plan.closureTasks[i]));
    kxSetCell(values.get(), i, valueOf(plan.closureTasks[i]).release());
  }
  return makeMap(std::move(keys), values);
}

}  // namespace

LazyTaskGraph::LazyTaskGraph(const ki::KalvexManagedConstructInfo& info)
    : KalvexManagedObject(info) {}

LazyTaskGraph::LazyTaskGraph(const ki::KalvexManagedConstructInfo& info,
                             std::vector<KalvexManagedPtr<Closure>> closures)
    : KalvexManagedObject(info) {
  TaskPlan plan = makeTaskPlan(closures);
  setTasks(std::move(plan.allTasks));
  setOutputTasks(collectOutputTasks(plan, closures));
  setClosureToTaskMap(makeMapOfPlan(
      plan, [](const ClosureTask& entry) { return entry.closure->getId(); },
      [](const ClosureTask& entry) { return matrix::sharedCopy(entry.task.get()); }));
  setTaskToClosureMap(makeMapOfPlan(
      plan, [](const ClosureTask& entry) { return taskId(entry.task); },
      [](const ClosureTask& entry) { return ki::toArray(entry.closure); }));
}

void LazyTaskGraph::setTasks(ArrayPtr tasks) {
  tasks_ = ki::adoptPropertyArray(selfInterface(), std::move(tasks));
}

void LazyTaskGraph::setOutputTasks(ArrayPtr tasks) {
  outputTasks_ = ki::adoptPropertyArray(selfInterface(), std::move(tasks));
}

void LazyTaskGraph::setClosureToTaskMap(ArrayPtr map) {
  closureToTaskMap_ = ki::adoptPropertyArray(selfInterface(), std::move(map));
}

void LazyTaskGraph::setTaskToClosureMap(ArrayPtr map) {
  taskToClosureMap_ = ki::adoptPropertyArray(selfInterface(), std::move(map));
}

namespace {

class LazyTaskGraphCosClassInfo final : public ki::KalvexManagedCosClassInfo<LazyTaskGraph> {
 public:
  void initializeClass(kcos::COSClass* cls, const kcos::COSClient* client) override {
    using ki::Access;
    using Graph = LazyTaskGraph;
    util::keepCosClient<LazyTaskGraph>(client);
    ki::CosClassBuilder<LazyTaskGraph>(cls)
        .superclass("kalvex.bigdata.internal.executor.TaskGraph")
        .constructor<std::vector<KalvexManagedPtr<Closure>>>(Access::Public)
        .constructor<>(Access::Private)
        .property("Tasks", &Graph::getTasks, &Graph::setTasks, Access::Public, Access::Private)
        .property("OutputTasks", &Graph::getOutputTasks, &Graph::setOutputTasks, Access::Public,
                  Access::Private)
        .property("ClosureToTaskMap", &Graph::getClosureToTaskMap, &Graph::setClosureToTaskMap,
                  Access::Public, Access::Private)
        .property("TaskToClosureMap", &Graph::getTaskToClosureMap, &Graph::setTaskToClosureMap,
                  Access::Public, Access::Private)
        .declareStaticMethod("createExecutionTasks", Access::Private);
  }
};

const ki::ClassKcosRegistration<LazyTaskGraphCosClassInfo> registration;

}  // namespace

}  // namespace bigdata::lazyeval

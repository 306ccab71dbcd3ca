// Plans closure by closure in dependency order. The host side may do anything while it creates
// tasks, even exchange futures, so this file looks up the tasks of each closure's dependencies at
// the time of the call and raises an error for a closure that the walk didn't see, instead of
// planning it late.

#include "lazyeval/TaskPlan.h"

#include <algorithm>
#include <string>
#include <utility>
#include <variant>

#include "foundation/i18n.h"
#include "kcos/calls.h"
#include "ki/conversions.h"
#include "ki/hostCalls.h"
#include "lazyeval/Closure.h"
#include "lazyeval/ClosureDependencyWalker.h"
#include "lazyeval/LazyTaskGraph.h"
#include "util/CosClientTraits.h"
#include "util/ErrorIds.h"
#include "util/InternalError.h"

namespace bigdata::lazyeval {

using ki::KalvexManagedPtr;
using matrix::ArrayPtr;

namespace {

using Closures = std::vector<KalvexManagedPtr<Closure>>;

/// Builds a plan closure by closure.
class Planner {
 public:
  explicit Planner(bool isProfiling)
      : profilerFlag_(matrix::from_kalvex(kxCreateLogicalScalar(isProfiling))) {}

  void add(const KalvexManagedPtr<Closure>& closure) {
    Closures dependencies = closure->getDirectDependencies();
    sort(dependencies);
    const ArrayPtr created = tasksFromHost(closure, dependencies);
    append(created.get(), *closure);
    planned_.emplace(closure.get(), Planned{tasks_.back(), closureTasks_.size()});
    closureTasks_.push_back(
        {closure, matrix::from_kalvex(kcos::omCreateKCOSScalar(tasks_.back()))});
  }

  TaskPlan finish() && { return {std::move(closureTasks_), makeTaskArray(tasks_)}; }

 private:
  /// The output task of a closure, and the position of the closure in the plan.
  struct Planned {
    kcos::COSInterfacePtr task;
    std::size_t position;
  };

  /// Sorts by id, so that the order in which inputs reach the host doesn't depend on addresses.
  /// Closures with the same id, such as one and its loaded copy, keep the order of planning.
  void sort(Closures& closures) const {
    if (closures.size() < 2) {
      return;
    }
    std::ranges::sort(closures, [this](const auto& a, const auto& b) {
      const auto& first = a->uniqueId();
      const auto& second = b->uniqueId();
      return first == second ? positionOf(*a) < positionOf(*b) : first < second;
    });
  }

  /// A closure that wasn't planned comes after all others.
  std::size_t positionOf(const Closure& closure) const {
    const auto found = planned_.find(&closure);
    return found == planned_.end() ? planned_.size() : found->second.position;
  }

  ArrayPtr tasksFromHost(const KalvexManagedPtr<Closure>& closure,
                         const Closures& dependencies) const {
    const ArrayPtr closureArray = ki::toArray(closure);
    const ArrayPtr dependencyArray = ki::toArray(dependencies);
    const ArrayPtr inputTasks = tasksOf(dependencies);
    return ki::callHostMethod(
        ki::classKey<LazyTaskGraph>(), "createExecutionTasks", util::keptCosClient<LazyTaskGraph>(),
        {closureArray.get(), dependencyArray.get(), inputTasks.get(), profilerFlag_.get()},
        /*last=*/true);
  }

  /// The output tasks of closures that were planned before. Code of the host runs between the walk
  /// and this call and could have exchanged the futures of a promise.
  ArrayPtr tasksOf(const Closures& closures) const {
    std::vector<kcos::COSInterfacePtr> tasks;
    tasks.reserve(closures.size());
    for (const KalvexManagedPtr<Closure>& closure : closures) {
      const auto planned = planned_.find(closure.get());
      if (planned == planned_.end()) {
        throwInternalError(fl::i18n::to_string(closure->getIdStr()) +
                           " became an input while the plan was made");
      }
      tasks.push_back(planned->second.task);
    }
    return makeTaskArray(tasks);
  }

  void append(const kxArray* created, const Closure& closure) {
    if (!kxIsEmpty(created) && !kxIsA(created, kExecutionTaskClass)) {
      foundation::core::except::raise<KALVEX::validateattributes::invalidType>(
          "Input", kExecutionTaskClass.text(), kxGetClassName(created));
    }
    const std::size_t count = kxGetNumberOfElements(created);
    for (std::size_t i = 0; i < count; ++i) {
      tasks_.push_back(kcos::omGetArrayElement(created, i));
    }
    // A closure without tasks of its own shares the latest one. The first has none to share.
    if (tasks_.empty()) {
      throwInternalError("createExecutionTasks gave no task for " +
                         fl::i18n::to_string(closure.getIdStr()) +
                         ", the first closure of the plan");
    }
  }

  ArrayPtr profilerFlag_;
  std::vector<ClosureTask> closureTasks_;
  std::vector<kcos::COSInterfacePtr> tasks_;
  std::unordered_map<const Closure*, Planned> planned_;
};

}  // namespace

TaskPlan makeTaskPlan(std::span<const KalvexManagedPtr<Closure>> closures) {
  Planner planner(ki::fromArray<bool>(
      ki::callHost("kalvex.bigdata.internal.debug.TallProfiler.enabled").get()));
  ClosureDependencyWalker walker;
  for (const KalvexManagedPtr<Closure>& closure : closures) {
    walker.walk(closure);
  }
  for (const ClosureGraphNode& node : walker.nodes()) {
    if (const auto* closure = std::get_if<KalvexManagedPtr<Closure>>(&node)) {
      planner.add(*closure);
    }
  }
  return std::move(planner).finish();
}

ArrayPtr makeTaskArray(std::span<const kcos::COSInterfacePtr> tasks) {
  ArrayPtr array = matrix::from_kalvex(
      kcos::omCreateKCOSMatrix(tasks.size(), 1, kcos::internal::makeInterned(kExecutionTaskClass)));
  for (std::size_t i = 0; i < tasks.size(); ++i) {
    kcos::omSetArrayElement(array.get(), i, tasks[i]);
  }
  return array;
}

}  // namespace bigdata::lazyeval

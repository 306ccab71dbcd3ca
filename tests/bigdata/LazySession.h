#pragma once

#include <gmock/gmock.h>

#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "CoreSession.h"
#include "ki/KalvexManagedPtr.h"
#include "ki/conversions.h"
#include "kv/host/session.h"
#include "lazyeval/Closure.h"
#include "lazyeval/ClosureFuture.h"
#include "lazyeval/ClosurePromise.h"
#include "lazyeval/LazyPartitionedArray.h"
#include "lazyeval/Operation.h"

namespace bigdata::lazyeval {

using ClosurePtr = ki::KalvexManagedPtr<Closure>;
using FuturePtr = ki::KalvexManagedPtr<ClosureFuture>;
using PromisePtr = ki::KalvexManagedPtr<ClosurePromise>;
using OperationPtr = ki::KalvexManagedPtr<Operation>;
using LazyArrayPtr = ki::KalvexManagedPtr<LazyPartitionedArray>;

/// A session with the core, and a host side with a stub for every name that the lazy graph reaches.
class LazySession : public CoreSession {
 protected:
  LazySession();

  // Constructing objects.
  OperationPtr operation(int numInputs, int numOutputs);
  ClosurePtr closure(std::vector<FuturePtr> inputs, int numOutputs = 1);
  FuturePtr future(const ClosurePtr& closure, std::size_t output = 0);
  PromisePtr promise(const ClosurePtr& closure, std::size_t output = 0);
  FuturePtr constant(double value);
  Value lazyArray(const FuturePtr& future);
  Value plus() {
    return kv::host::makeFunctionHandle("plus", [](const Call&) {});
  }
  Value wrapper(std::string_view className, Value value);  ///< LocalArray or BroadcastArray

  Value executor = kv::host::makeString("default executor");
  Value overridingExecutor;
  /// What `createExecutionTasks` of the task graph returns.
  std::function<Value(const Call&)> createTasks;

  /// An n-by-1 array of new tasks with the ids task_1, task_2 and so on, counted over all calls.
  Value newTasks(std::size_t count, const Value& strategy = nullptr);

 private:
  void defineFunctions();
  void defineClasses();
  void defineOperation(const std::string& name, int inputsAt, int outputsAt);

  int taskCount_ = 0;
};

}  // namespace bigdata::lazyeval

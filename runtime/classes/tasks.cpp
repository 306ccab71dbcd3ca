// The core asks for the tasks of a closure in two steps, both by the name createExecutionTasks. The
// static method of the task graph, which is here, gets the closure and the tasks that are there
// already; it finds the inputs of the closure among them and calls the method of the closure's
// operation (operations.cpp, or a user's own class), which makes the tasks.

#include <array>
#include <atomic>
#include <cassert>
#include <string>
#include <vector>

#include "classes/classes.h"
#include "classes/definitionHelpers.h"
#include "classes/dependencies.h"
#include "driver/ClosureTasks.h"
#include "kv/host/construction.h"
#include "kv/host/errors.h"
#include "values/hostNames.h"
#include "values/objects.h"

namespace kv::runtime {

namespace {

using host::Call;
using host::Value;

std::string nextTaskId() {
  static std::atomic<std::uint64_t> next{1};
  return "task_" + std::to_string(next.fetch_add(1, std::memory_order_relaxed));
}

/// ExecutionTask(dependencies, dataProcessorFactory, outputPartitionStrategy, numOutputs)
void constructTask(const Call& call) {
  const kxArray* task = call.in(0);
  host::setSlot(task, "Id", host::makeChars(nextTaskId()));
  host::setSlot(task, "Dependencies", matrix::sharedCopy(call.in(1)));
  host::setSlot(task, "DataProcessorFactory", matrix::sharedCopy(call.in(2)));
  host::setSlot(task, "OutputPartitionStrategy", matrix::sharedCopy(call.in(3)));
  host::setSlot(task, "NumOutputs", matrix::sharedCopy(call.in(4)));
}

/// Which task produces the outputs of which closure.
class TasksOfClosures {
 public:
  TasksOfClosures(const kxArray* closures, const kxArray* tasks)
      : numbers_(closures), tasks_(tasks) {}

  Value taskOf(const kxArray* closure) const {
    const auto number = numbers_.of(closure);
    if (!number || *number >= kxGetNumberOfElements(tasks_)) {
      host::raise("KALVEX:array:NotInGraph", {"closure"});
    }
    return elementOf(tasks_, *number);
  }

 private:
  ObjectNumbers numbers_;
  const kxArray* tasks_;
};

Dependency pendingDependency(const kxArray* promise, const TasksOfClosures& tasks) {
  const Value closure = host::getProperty(promise, "Closure");
  std::vector<Value> entry;
  entry.push_back(tasks.taskOf(closure.get()));
  entry.push_back(host::getProperty(promise, "ArgoutIndex"));
  const bool isBroadcast = hasBroadcastOutput(entry[0].get());
  return {host::makeCell(std::move(entry)), isBroadcast};
}

/// Notes in the graph under construction that the last of `tasks` produces the outputs of
/// `closure`.
void noteClosure(const kxArray* closure, const kxArray* tasks) {
  const Value graph = host::objectUnderConstruction();
  const std::size_t count = kxGetNumberOfElements(tasks);
  if (graph == nullptr || !kxIsA(graph.get(), kTaskGraph) || count == 0 ||
      !kxIsA(tasks, kExecutionTask)) {
    return;  // the planner has its own rule for wrong and missing tasks
  }
  ClosureTasks::note(graph.get(), kcos::omGetArrayElement(closure, 0),
                     kcos::omGetArrayElement(tasks, count - 1));
}

/// The task graph's createExecutionTasks(closure, closures it depends on, their tasks, profiling).
void tasksOfClosure(const Call& call) {
  const Value futures = host::getProperty(call.in(0), "InputFutures");
  const Value operation = host::getProperty(call.in(0), "Operation");
  const TasksOfClosures tasks(call.in(1), call.in(2));
  const std::size_t count = kxGetNumberOfElements(futures.get());
  std::vector<Dependency> inputs;
  for (std::size_t i = 0; i < count; ++i) {
    const Value future = elementOf(futures.get(), i);
    const Value promise = host::getProperty(future.get(), "Promise");
    const bool isDone = host::toLogical(host::getProperty(promise.get(), "IsDone").get());
    inputs.push_back(isDone ? completeDependency(promise.get())
                            : pendingDependency(promise.get(), tasks));
  }
  Value created = tasksOfOperation(operation.get(), std::move(inputs));
  noteClosure(call.in(0), created.get());
  call.out(0, std::move(created));
}

}  // namespace

Dependency completeDependency(const kxArray* promise) {
  assert(host::toLogical(host::getProperty(promise, "IsDone").get()));
  std::vector<Value> entry;
  entry.push_back(host::getProperty(promise, "CachedValue"));
  entry.push_back(host::getProperty(promise, "Metadata"));
  const bool isBroadcast = kxIsEmpty(entry[1].get());
  const Value output = host::getProperty(promise, "ArgoutIndex");
  entry.push_back(host::makeLogical(isBroadcast && kxGetScalar(output.get()) == 0));
  return {host::makeCell(std::move(entry)), isBroadcast};
}

Value tasksOfOperation(const kxArray* operation, std::vector<Dependency> inputs) {
  std::vector<Value> entries;
  const Value isBroadcast = matrix::from_kalvex(
      kxCreateNumericArray(std::array<std::size_t, 2>{1, inputs.size()}, kxLOGICAL_CLASS));
  auto* flags = static_cast<bool*>(kxGetMutableData(isBroadcast.get()));
  for (std::size_t i = 0; i < inputs.size(); ++i) {
    entries.push_back(std::move(inputs[i].entry));
    flags[i] = inputs[i].isBroadcast;
  }
  const Value dependencies = host::makeCell(std::move(entries));
  return host::call("createExecutionTasks", {operation, dependencies.get(), isBroadcast.get()});
}

void defineTasks(host::Session& session) {
  std::vector<host::PropertyDefinition> notes;
  for (const kcos::NameRef slot : ClosureTasks::kSlots) {
    notes.push_back({.name = std::string(slot.text()),
                     .getAccess = host::MemberAccess::Private,
                     .setAccess = host::MemberAccess::Private});
  }
  define(session, {.name = kTaskGraph, .properties = std::move(notes)});
  define(session,
         {.name = kExecutionTask,
          .properties = {readOnly("Id"), readOnly("Dependencies"), readOnly("DataProcessorFactory"),
                         readOnly("OutputPartitionStrategy"), readOnly("NumOutputs")},
          .constructor = constructor(constructTask, 5, 5)});
  complete(session, kLazyTaskGraph, {staticMethod("createExecutionTasks", tasksOfClosure, 4, 4)});
}

}  // namespace kv::runtime

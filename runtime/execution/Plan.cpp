#include "execution/Plan.h"

#include <algorithm>
#include <unordered_map>

#include "execution/ClosureTasks.h"
#include "execution/failures.h"
#include "kv/host/errors.h"
#include "values/hostNames.h"

namespace kv::runtime {
namespace {

/// More outputs than any operation has.
constexpr std::size_t kMaxOutputs = 1 << 20;

using ObjectIndex = std::unordered_map<const kcos::COSInterface*, int>;

const kcos::COSInterface* objectOf(const kxArray* scalar) {
  return kcos::omGetArrayElement(scalar, 0);
}

host::Value elementOf(const kxArray* objects, std::size_t index) {
  return matrix::from_kalvex(kcos::omCreateKCOSScalar(kcos::omGetArrayElement(objects, index)));
}

bool isBroadcast(const kxArray* strategy) {
  return kcos::omIsKCOS(strategy) &&
         host::toLogical(host::getProperty(strategy, "IsBroadcast").get());
}

[[noreturn]] void refuseDependencies(const kxArray* value) {
  host::raise("KALVEX:validateattributes:invalidType",
              {"The dependencies of a task", "as createExecutionTasks was given them",
               kxGetClassName(value)});
}

std::size_t numCells(const kxArray* value) {
  return kxGetClassID(value) == kxCELL_CLASS ? kxGetNumberOfElements(value) : 0;
}

/// An output of a task, from its number, which counts from 1.
std::size_t outputOf(const PlanTask& task, const kxArray* number) {
  const std::size_t output = host::toCount(number, task.spec->numOutputs);
  if (output == 0) {
    host::raise("KALVEX:validateattributes:invalidType", {"Output", "at least 1", "0"});
  }
  return output - 1;
}

/// One entry of a task's dependencies: {task, output from 1} or {value, metadata, whether it is a
/// constant}. Users' own tasks bring it, too.
PlanInput readInput(const kxArray* entry, const std::vector<PlanTask>& before,
                    const ObjectIndex& indexOf) {
  PlanInput input;
  const std::size_t parts = numCells(entry);
  if (parts == 2) {
    const auto found = indexOf.find(objectOf(kxGetCell(entry, 0)));
    if (found == indexOf.end()) {
      refuseDependencies(entry);
    }
    input.task = found->second;
    input.output = outputOf(before[static_cast<std::size_t>(input.task)], kxGetCell(entry, 1));
  } else if (parts == 3) {
    input.value = matrix::sharedCopy(kxGetCell(entry, 0));
    input.metadata = matrix::sharedCopy(kxGetCell(entry, 1));
  } else {
    refuseDependencies(entry);
  }
  return input;
}

/// The lines where the operations behind a graph's output tasks were recorded.
class RecordedStacks {
 public:
  explicit RecordedStacks(const ClosureTasks& entries) : entries_(entries) {
    for (std::size_t i = 0; i < entries.size(); ++i) {
      indexOf_.emplace(objectOf(entries.task(i)), i);
    }
  }

  /// Null for a task that stands behind no closure, such as an inner one of several.
  host::Value of(const kxArray* task) const {
    const auto found = indexOf_.find(objectOf(task));
    return found == indexOf_.end()
               ? nullptr
               : host::getProperty(
                     host::getProperty(entries_.closure(found->second), "Operation").get(),
                     "Stack");
  }

 private:
  const ClosureTasks& entries_;
  std::unordered_map<const kcos::COSInterface*, std::size_t> indexOf_;
};

/// What to do with a factory of a user's own class: its "feval" gets a chunk of each input, or
/// whole values where the task's output is broadcast, and returns the outputs.
std::unique_ptr<OpSpecValue> specOfUserFactory(const kxArray* task, const kxArray* factory,
                                               const kxArray* stack) {
  if (!kxIsA(factory, kProcessorFactory)) {
    host::raise("KALVEX:array:NotRunnable", {kxGetClassName(factory)});
  }
  const host::Value strategy = host::getProperty(task, "OutputPartitionStrategy");
  auto spec = std::make_shared<OpSpec>();
  spec->kind = isBroadcast(strategy.get()) ? OpKind::Client : OpKind::Elementwise;
  spec->label = kxGetClassName(factory);
  spec->origin = originOf(stack);
  spec->numInputs = kxGetNumberOfElements(host::getProperty(task, "Dependencies").get());
  spec->numOutputs = host::toCount(host::getProperty(task, "NumOutputs").get(), kMaxOutputs);
  return std::make_unique<OpSpecValue>(std::move(spec));
}

/// The factory of a task as one of the runtime's own.
host::Value readFactory(const kxArray* task, const RecordedStacks& stacks) {
  host::Value factory = host::getProperty(task, "DataProcessorFactory");
  if (kxIsA(factory.get(), kSpecFactory) && host::getNativeValue(factory.get()) != nullptr) {
    return factory;
  }
  const host::Value stack = stacks.of(task);
  if (kxIsA(factory.get(), kGlobalStateFactory)) {
    const host::Value wrapped = host::getProperty(factory.get(), "FunctionHandle");
    host::setNativeValue(factory.get(), specOfUserFactory(task, wrapped.get(), stack.get()));
    host::setSlot(factory.get(), "SubmissionStack", matrix::sharedCopy(stack.get()));
  } else if (!kxIsA(factory.get(), kSpecFactory)) {
    auto spec = specOfUserFactory(task, factory.get(), stack.get());
    factory = host::call(kSpecFactory, {factory.get(), nullptr, stack.get()});
    host::setNativeValue(factory.get(), std::move(spec));
  }
  return factory;
}

PlanTask readTask(const host::Value& object, const std::vector<PlanTask>& before,
                  const ObjectIndex& indexOf, const RecordedStacks& stacks) {
  PlanTask task;
  task.id = host::toText(host::getProperty(object.get(), "Id").get());
  task.factory = readFactory(object.get(), stacks);
  task.spec = host::nativeValue<OpSpecValue>(task.factory.get(), kSpecFactory).spec;
  const host::Value dependencies = host::getProperty(object.get(), "Dependencies");
  const std::size_t count = numCells(dependencies.get());
  if (count != kxGetNumberOfElements(dependencies.get())) {
    refuseDependencies(dependencies.get());
  }
  for (std::size_t i = 0; i < count; ++i) {
    task.inputs.push_back(readInput(kxGetCell(dependencies.get(), i), before, indexOf));
  }
  return task;
}

/// Where a task runs and in which pass, from those of its inputs.
void placeTask(PlanTask& task, const std::vector<PlanTask>& before) {
  int flowing = 0;  // the latest pass in which a partitioned input flows
  int whole = 0;    // the number of passes until all whole inputs are there
  for (const PlanInput& input : task.inputs) {
    if (input.task >= 0) {
      const PlanTask& source = before[static_cast<std::size_t>(input.task)];
      int& latest = source.isPartitioned ? flowing : whole;
      latest = std::max(latest, source.pass);
    }
  }
  const OpKind kind = task.spec->kind;
  const bool hasRows = flowing > 0 || kind == OpKind::Read;
  const bool endsPass = kind == OpKind::Aggregate || kind == OpKind::Client;
  task.isPartitioned = hasRows && !endsPass;
  task.runsInClient = !hasRows || kind == OpKind::Client;
  if (!hasRows) {
    task.pass = whole;
  } else if (kind == OpKind::Client) {
    task.pass = std::max(flowing, whole);
  } else {
    task.pass = std::max({1, flowing, whole + 1});
  }
}

std::vector<PlanResult> findResults(const ClosureTasks& entries, const kxArray* promises,
                                    const std::vector<PlanTask>& tasks,
                                    const ObjectIndex& indexOf) {
  std::vector<PlanResult> results;
  for (std::size_t i = 0; i < kxGetNumberOfElements(promises); ++i) {
    host::Value promise = elementOf(promises, i);
    const host::Value closure = host::getProperty(promise.get(), "Closure");
    const host::Value output = host::getProperty(promise.get(), "ArgoutIndex");
    const auto task = indexOf.find(objectOf(entries.taskOf(closure.get())));
    if (task == indexOf.end()) {
      host::raise("KALVEX:array:NotInGraph", {"task of a promise"});
    }
    const PlanTask& found = tasks[static_cast<std::size_t>(task->second)];
    results.push_back({task->second, outputOf(found, output.get()), std::move(promise)});
  }
  return results;
}

}  // namespace

Plan makePlan(const kxArray* taskGraph, const kxArray* promises) {
  Plan plan;
  ObjectIndex indexOf;
  const host::Value tasks = host::getProperty(taskGraph, "Tasks");
  const std::size_t count = kxGetNumberOfElements(tasks.get());
  plan.tasks.reserve(count);
  const ClosureTasks entries(taskGraph);
  const RecordedStacks stacks(entries);
  for (std::size_t i = 0; i < count; ++i) {
    const host::Value object = elementOf(tasks.get(), i);
    catchingFailures([&] { plan.tasks.push_back(readTask(object, plan.tasks, indexOf, stacks)); },
                     [&](const std::exception_ptr& failure) {
                       const OpSpec planning{.label = "The planning of a task"};
                       raiseStepFailure(failure, planning, stacks.of(object.get()).get());
                     });
    placeTask(plan.tasks.back(), plan.tasks);
    indexOf.emplace(objectOf(object.get()), static_cast<int>(i));
  }
  plan.results = findResults(entries, promises, plan.tasks, indexOf);
  for (const PlanTask& task : plan.tasks) {
    plan.passes = std::max(plan.passes, task.pass);
  }
  return plan;
}

std::vector<Plan::Kept> Plan::keptIn(int pass) const {
  std::vector<Kept> kept;
  const auto keep = [&](int task, std::size_t output) {
    const PlanTask& source = tasks[static_cast<std::size_t>(task)];
    const bool isKnown = std::any_of(kept.begin(), kept.end(), [&](const Kept& entry) {
      return entry.task == task && entry.output == output;
    });
    if (source.isPartitioned && source.pass == pass && !isKnown) {
      kept.push_back({task, output});
    }
  };
  for (const PlanTask& task : tasks) {
    for (const PlanInput& input : task.inputs) {
      if (task.runsInClient && input.task >= 0) {
        keep(input.task, input.output);
      }
    }
  }
  for (const PlanResult& result : results) {
    keep(result.task, result.output);
  }
  return kept;
}

std::vector<int> Plan::aggregatesOf(int pass) const {
  std::vector<int> found;
  for (std::size_t i = 0; i < tasks.size(); ++i) {
    const PlanTask& task = tasks[i];
    if (task.spec->kind == OpKind::Aggregate && !task.runsInClient && task.pass == pass) {
      found.push_back(static_cast<int>(i));
    }
  }
  return found;
}

std::vector<int> Plan::upstreamOf(const std::vector<int>& sinks) const {
  std::vector<bool> needed(tasks.size(), false);
  for (const int sink : sinks) {
    needed[static_cast<std::size_t>(sink)] = true;
  }
  for (std::size_t i = tasks.size(); i-- > 0;) {
    for (const PlanInput& input : tasks[i].inputs) {
      if (needed[i] && input.task >= 0) {
        const auto source = static_cast<std::size_t>(input.task);
        needed[source] = needed[source] || tasks[source].isPartitioned;
      }
    }
  }
  std::vector<int> upstream;
  for (std::size_t i = 0; i < tasks.size(); ++i) {
    if (needed[i]) {
      upstream.push_back(static_cast<int>(i));
    }
  }
  return upstream;
}

}  // namespace kv::runtime

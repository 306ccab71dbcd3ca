#include "plan/Plan.h"

#include <algorithm>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <unordered_map>
#include <utility>

#include "kv/host/errors.h"
#include "plan/ClosureTasks.h"
#include "plan/failures.h"
#include "values/chunkValues.h"
#include "values/hostNames.h"
#include "values/placesValues.h"

namespace kv::runtime {

namespace {

/// More outputs than any operation has.
constexpr std::size_t kMaxOutputs = 1 << 20;

using ObjectIndex = std::unordered_map<const kcos::COSInterface*, int>;

const kcos::COSInterface* objectOf(const kxArray* scalar) {
  return kcos::omGetArrayElement(scalar, 0);
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

/// Reads the places of values. Many inputs may share the metadata of one value, which is as long as
/// the chunks of its source are many: it is read once.
class PlacesReader {
 public:
  /// Null for metadata that isn't the places of the value's rows.
  std::shared_ptr<const RowPlaces> read(const kxArray* metadata, const kxArray* value) {
    const bool isStruct = kxGetClassID(metadata) == kxSTRUCT_CLASS && !kxIsEmpty(metadata);
    const kxArray* field = isStruct ? kxGetField(metadata, 0, "PartitionRows") : nullptr;
    const std::optional<std::size_t> rows = rowsOf(value);
    if (field == nullptr || !rows) {
      return nullptr;
    }
    Known& known = known_[field];
    if (known.rows != *rows || !kxIsSameValue(known.metadata.get(), metadata)) {
      auto places = placesOf(metadata, *rows);
      known = {matrix::sharedCopy(metadata), *rows,
               places ? std::make_shared<const RowPlaces>(*std::move(places)) : nullptr};
    }
    return known.places;
  }

 private:
  struct Known {
    host::Value metadata;  ///< a copy, so that no other metadata gets the address of its field
    std::size_t rows = 0;
    std::shared_ptr<const RowPlaces> places;
  };

  std::unordered_map<const kxArray*, Known> known_;  ///< by field: copies share one
};

/// One entry of a task's dependencies: {task, output from 1} or {value, metadata, whether it is a
/// constant}. Users' own tasks bring it, too.
PlanInput readInput(const kxArray* entry, const Plan& before, const ObjectIndex& indexOf,
                    PlacesReader& places) {
  PlanInput input;
  const std::size_t parts = numCells(entry);
  if (parts == 2) {
    const auto found = indexOf.find(objectOf(kxGetCell(entry, 0)));
    if (found == indexOf.end()) {
      refuseDependencies(entry);
    }
    input.task = found->second;
    input.output = outputOf(before.task(input.task), kxGetCell(entry, 1));
  } else if (parts == 3) {
    input.value = matrix::sharedCopy(kxGetCell(entry, 0));
    input.places = places.read(kxGetCell(entry, 1), input.value.get());
  } else {
    refuseDependencies(entry);
  }
  return input;
}

/// The lines where the operations of a graph's output tasks were recorded.
class RecordedStacks {
 public:
  RecordedStacks() = default;
  explicit RecordedStacks(const ClosureTasks& entries) : entries_(&entries) {
    for (std::size_t i = 0; i < entries.size(); ++i) {
      indexOf_.emplace(objectOf(entries.task(i)), i);
    }
  }

  /// Null for a task of no closure, such as an inner one of several.
  host::Value of(const kxArray* task) const {
    const auto found = indexOf_.find(objectOf(task));
    return found == indexOf_.end()
               ? nullptr
               : host::getProperty(
                     host::getProperty(entries_->closure(found->second), "Operation").get(),
                     "Stack");
  }

 private:
  const ClosureTasks* entries_ = nullptr;
  std::unordered_map<const kcos::COSInterface*, std::size_t> indexOf_;
};

/// What to do with a factory of a user's own class: its "feval" gets a chunk of each input, or
/// whole values where the task's output is broadcast, and returns the outputs.
std::unique_ptr<OpSpecValue> specOfUserFactory(const kxArray* task, const kxArray* factory,
                                               const kxArray* stack) {
  if (!kxIsA(factory, kProcessorFactory)) {
    host::raise("KALVEX:array:NotRunnable", {kxGetClassName(factory)});
  }
  auto spec = std::make_shared<OpSpec>();
  spec->callsUser = true;
  spec->op = hasBroadcastOutput(task) ? nullptr : makeCallable();
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

PlanTask readTask(const host::Value& object, const Plan& before, const ObjectIndex& indexOf,
                  const RecordedStacks& stacks, PlacesReader& places) {
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
    task.inputs.push_back(readInput(kxGetCell(dependencies.get(), i), before, indexOf, places));
  }
  if (count != task.spec->numInputs) {
    host::raise("KALVEX:array:OperationArity",
                {task.spec->label, std::to_string(task.spec->numInputs) + " inputs",
                 std::to_string(count)});
  }
  return task;
}

/// The inputs whose rows are those of the result: all but the condition of a choice.
std::span<const PlanInput> rowInputs(const PlanTask& task) {
  const std::span inputs(task.inputs);
  return inputs.subspan(task.spec->isChoice ? std::min<std::size_t>(1, inputs.size()) : 0);
}

/// Whether a task has rows, and where it runs.
void placeTask(PlanTask& task, const Plan& plan) {
  const OpSpec& spec = *task.spec;
  const bool hasRows =
      spec.source() != nullptr || std::ranges::any_of(rowInputs(task), [&](const PlanInput& input) {
        return plan.flows(input);
      });
  task.isPartitioned = hasRows && !spec.endsRows() && !spec.isClientOnly();
  task.runsInClient = !hasRows || spec.isClientOnly();
}

/// A task of the plan's own, which does what another of the kind does.
PlanTask taskLike(const PlanTask& task, std::vector<PlanInput> inputs) {
  PlanTask made{task.id, nullptr, matrix::sharedCopy(task.factory.get()), std::move(inputs), true};
  auto spec = std::make_shared<OpSpec>(*task.spec);
  spec->numInputs = made.inputs.size();
  spec->numOutputs = 1;
  made.spec = std::move(spec);
  return made;
}

PlanInput copyOf(const PlanInput& input) {
  return {input.task, input.output, matrix::sharedCopy(input.value.get()), input.places};
}

bool isFilter(const PlanTask& task) {
  return task.spec->op != nullptr && task.spec->op->rowEffect() == RowEffect::Filter;
}

/// Adds tasks to a plan, and finds for each what decides on its rows: the nearest source, filter or
/// choice. A value that a choice repeats needs these rows, and none of their elements.
class PlanBuilder {
 public:
  explicit PlanBuilder(Plan& plan) : plan_(plan) {}

  /// Result: the index of the task.
  int add(PlanTask task) {
    std::optional<PlanInput> decider;
    if (task.spec->isChoice && task.isPartitioned) {
      decider = decideChoice(task);
    } else if (!isFilter(task)) {
      decider = firstFlowing(task);
    }
    const int index = push(std::move(task));
    deciders_[static_cast<std::size_t>(index)] = std::move(decider);
    return index;
  }

 private:
  int push(PlanTask task) {
    plan_.tasks.push_back(std::move(task));
    deciders_.emplace_back();
    return static_cast<int>(plan_.tasks.size()) - 1;
  }

  /// None for a task without rows, and for a source, which decides on its own.
  std::optional<PlanInput> firstFlowing(const PlanTask& task) {
    for (const PlanInput& input : task.inputs) {
      if (plan_.flows(input)) {
        return deciderOf(input);
      }
    }
    return std::nullopt;
  }

  PlanInput deciderOf(const PlanInput& input) {
    if (input.task < 0) {
      return copyOf(input);
    }
    const auto index = static_cast<std::size_t>(input.task);
    if (!deciders_[index]) {
      deciders_[index] = PlanInput{.task = decidingTask(input.task)};
    }
    return copyOf(*deciders_[index]);
  }

  /// The condition of a filter, filtered by the same condition, has its rows.
  int decidingTask(int index) {
    const PlanTask& task = plan_.task(index);
    if (!isFilter(task) || task.inputs.empty()) {
      return index;
    }
    std::vector<PlanInput> keep;
    keep.push_back(copyOf(task.inputs[0]));
    keep.push_back(copyOf(task.inputs[0]));
    return push(taskLike(task, std::move(keep)));
  }

  /// Of a choice between rows and a value, the rows; of two that aren't the same, a choice again.
  std::optional<PlanInput> decideChoice(PlanTask& task) {
    std::vector<PlanInput> deciders;
    for (const PlanInput& branch : rowInputs(task)) {
      if (plan_.flows(branch)) {
        deciders.push_back(deciderOf(branch));
      }
    }
    if (deciders.size() == 1) {
      task.spreadOver = copyOf(deciders[0]);
    }
    const bool areSame =
        deciders.size() == 2 && deciders[0].task >= 0 && deciders[0].task == deciders[1].task;
    if (deciders.size() == 1 || areSame) {
      return std::move(deciders[0]);
    }
    deciders.insert(deciders.begin(), copyOf(task.inputs[0]));
    return PlanInput{.task = push(taskLike(task, std::move(deciders)))};
  }

  Plan& plan_;
  std::vector<std::optional<PlanInput>> deciders_;  ///< of each task; found when first asked for
};

void addResults(Plan& plan, const ClosureTasks& entries, const kxArray* promises, bool areAsked,
                const ObjectIndex& indexOf) {
  for (std::size_t i = 0; i < kxGetNumberOfElements(promises); ++i) {
    host::Value promise = elementOf(promises, i);
    const host::Value closure = host::getProperty(promise.get(), "Closure");
    const host::Value output = host::getProperty(promise.get(), "ArgoutIndex");
    const auto task = indexOf.find(objectOf(entries.taskOf(closure.get())));
    if (task == indexOf.end()) {
      host::raise("KALVEX:array:NotInGraph", {"task of a promise"});
    }
    plan.results.push_back({task->second, outputOf(plan.task(task->second), output.get()),
                            std::move(promise), areAsked});
  }
}

}  // namespace

Plan makePlan(const kxArray* taskGraph, const kxArray* asked, const kxArray* others) {
  Plan plan;
  PlanBuilder builder(plan);
  ObjectIndex indexOf;
  PlacesReader places;
  const host::Value tasks = host::getProperty(taskGraph, "Tasks");
  const ClosureTasks entries(taskGraph);
  const RecordedStacks stacks(entries);
  for (std::size_t i = 0; i < kxGetNumberOfElements(tasks.get()); ++i) {
    const host::Value object = elementOf(tasks.get(), i);
    errors::catchingFailures(
        [&] {
          PlanTask task = readTask(object, plan, indexOf, stacks, places);
          placeTask(task, plan);
          indexOf.emplace(objectOf(object.get()), builder.add(std::move(task)));
        },
        [&](const std::exception_ptr& failure) {
          const OpSpec planning{.label = "The planning of a task"};
          raiseStepFailure(failureOf(failure), planning, stacks.of(object.get()).get());
        });
  }
  addResults(plan, entries, asked, true, indexOf);
  addResults(plan, entries, others, false, indexOf);
  return plan;
}

Plan makePlan(const host::Value& task) {
  Plan plan;
  PlacesReader places;
  plan.tasks.push_back(readTask(task, plan, {}, RecordedStacks(), places));
  placeTask(plan.tasks.back(), plan);
  for (std::size_t output = 0; output < plan.task(0).spec->numOutputs; ++output) {
    plan.results.push_back({0, output, nullptr});
  }
  return plan;
}

}  // namespace kv::runtime

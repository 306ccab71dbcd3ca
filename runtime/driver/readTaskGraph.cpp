// The only place that reads a task graph of the session. Tasks come in dependency order. Each
// becomes plain values of the plan; what they can't express, such as objects and the contents of
// values, goes to the handles, and the plan has its number. Users' own classes may bring tasks,
// too, and a file may have damaged them, so nothing about their dependencies is taken for granted.

#include "driver/readTaskGraph.h"

#include <algorithm>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>

#include "driver/ClosureTasks.h"
#include "driver/OpSpecValue.h"
#include "driver/failures.h"
#include "kv/host/errors.h"
#include "kv/host/freeFunctions.h"
#include "plan/PlanBuilder.h"
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

/// The closures of a graph's output tasks, and the lines where their operations were recorded.
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
    const kxArray* closure = closureOf(task);
    return closure == nullptr
               ? nullptr
               : host::getProperty(host::getProperty(closure, "Operation").get(), "Stack");
  }

  /// The name of the rows that a task makes of its own: they are those of its closure, however
  /// often it is run, and of no other.
  std::string rowSpaceOf(const kxArray* task) const {
    const kxArray* closure = closureOf(task);
    return "rows of " + host::toText(closure == nullptr
                                         ? host::getProperty(task, "Id").get()
                                         : host::getProperty(closure, "IdStr").get());
  }

 private:
  const kxArray* closureOf(const kxArray* task) const {
    const auto found = indexOf_.find(objectOf(task));
    return found == indexOf_.end() ? nullptr : entries_->closure(found->second);
  }

  const ClosureTasks* entries_ = nullptr;
  std::unordered_map<const kcos::COSInterface*, std::size_t> indexOf_;
};

/// What to do with a factory of a user's own class: its "feval" gets a chunk of each input, or
/// materialised values where the task's output is broadcast, and returns the outputs.
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

/// Whether the condition of a choice holds, if it is one logical value.
std::optional<bool> knownCondition(const kxArray* condition) {
  const bool isLogical = kxGetClassID(condition) == kxLOGICAL_CLASS && kxIsScalar(condition);
  return isLogical ? std::optional(kxGetLogicals(condition)[0]) : std::nullopt;
}

/// A constant that the user wrote by its class and content; none for a long one, whose content
/// isn't worth a look.
std::optional<Hash128> constantOf(const kxArray* value) {
  constexpr std::size_t kLongestText = 256;
  if (!kxIsScalar(value)) {
    return std::nullopt;
  }
  Fingerprint content;
  content.add(kxGetClassName(value));
  if (kxIsNumeric(value) || kxGetClassID(value) == kxLOGICAL_CLASS) {
    const auto* bytes = static_cast<const char*>(kxGetData(value));
    return content.add(std::string_view(bytes, kxGetElementSize(kxGetClassID(value)))).hash();
  }
  const auto text =
      Torvane::String::isString(value) ? Torvane::String::getString(value, 0) : std::nullopt;
  const bool isShort = text && text->size() <= kLongestText;
  return isShort ? std::optional(content.add(host::toText(value)).hash()) : std::nullopt;
}

/// Which functions a factory has: of the session by name, others by the callable that handles
/// share. None for a factory of a user's own, and for functions that draw random numbers.
std::optional<Hash128> functionsOf(const kxArray* factory) {
  if (kxIsA(factory, kGlobalStateFactory)) {
    return std::nullopt;
  }
  Fingerprint functions;
  bool isKnown = false;
  for (const kcos::NameRef slot :
       {kcos::NameRef("FunctionHandle"), kcos::NameRef("ReduceHandle")}) {
    const host::Value function = host::getProperty(factory, slot);
    if (!kxIsA(function.get(), kFunctionHandle)) {
      continue;
    }
    const host::Value handle = host::getProperty(function.get(), "Handle");
    const std::string name = host::functionName(handle.get());
    const host::NativeBody* body = host::callableBody(handle.get());
    if (name.empty() && body == nullptr) {
      return std::nullopt;
    }
    functions.add(name).add(reinterpret_cast<std::int64_t>(body));
    isKnown = true;
  }
  return isKnown ? std::optional(functions.hash()) : std::nullopt;
}

/// Reads tasks one by one, each after its inputs.
class TaskReader {
 public:
  void read(const kxArray* object, const RecordedStacks& stacks) {
    PlanTask task;
    task.id = host::toText(host::getProperty(object, "Id").get());
    host::Value factory = readFactory(object, stacks);
    task.spec = host::nativeValue<OpSpecValue>(factory.get(), kSpecFactory).spec;
    if (task.spec->callsUser) {
      task.functions = functionsOf(factory.get());
    }
    if (renewsRows(task)) {
      task.rowSpace = stacks.rowSpaceOf(object);
    }
    task.factory = read_.handles.factories.size();
    read_.handles.factories.push_back(std::move(factory));
    const host::Value dependencies = host::getProperty(object, "Dependencies");
    const std::size_t count = numCells(dependencies.get());
    if (count != kxGetNumberOfElements(dependencies.get())) {
      refuseDependencies(dependencies.get());
    }
    for (std::size_t i = 0; i < count; ++i) {
      task.inputs.push_back(readInput(kxGetCell(dependencies.get(), i), task.spec->isFree));
    }
    if (count != task.spec->numInputs) {
      host::raise("KALVEX:array:OperationArity",
                  {task.spec->label, std::to_string(task.spec->numInputs) + " inputs",
                   std::to_string(count)});
    }
    if (task.spec->isChoice && task.inputs[0].task < 0) {
      task.knownCondition = knownCondition(read_.handles.values[task.inputs[0].value].get());
    }
    indexOf_.emplace(objectOf(object), builder_.add(std::move(task)));
  }

  void addResults(const ClosureTasks& entries, const kxArray* promises, bool areAsked) {
    for (std::size_t i = 0; i < kxGetNumberOfElements(promises); ++i) {
      host::Value promise = elementOf(promises, i);
      const host::Value closure = host::getProperty(promise.get(), "Closure");
      const host::Value output = host::getProperty(promise.get(), "ArgoutIndex");
      const auto task = indexOf_.find(objectOf(entries.taskOf(closure.get())));
      if (task == indexOf_.end()) {
        host::raise("KALVEX:array:NotInGraph", {"task of a promise"});
      }
      read_.plan.results.push_back(
          {task->second, outputOf(read_.plan.task(task->second), output.get()), areAsked});
      read_.handles.promises.push_back(std::move(promise));
    }
  }

  /// All outputs of the last task, without promises.
  void addOutputs() {
    const int last = static_cast<int>(read_.plan.tasks.size()) - 1;
    for (std::size_t output = 0; output < read_.plan.task(last).spec->numOutputs; ++output) {
      read_.plan.results.push_back({last, output});
    }
  }

  ClientPlan take() { return std::move(read_); }

 private:
  /// One entry of a task's dependencies: {task, output from 1} or {value, metadata, whether it is a
  /// constant}. Users' own tasks bring it, too.
  PlanInput readInput(const kxArray* entry, bool isFree) {
    PlanInput input;
    const std::size_t parts = numCells(entry);
    if (parts == 2) {
      const auto found = indexOf_.find(objectOf(kxGetCell(entry, 0)));
      if (found == indexOf_.end()) {
        refuseDependencies(entry);
      }
      input.task = found->second;
      input.output = outputOf(read_.plan.task(input.task), kxGetCell(entry, 1));
    } else if (parts == 3) {
      const kxArray* value = kxGetCell(entry, 0);
      input.value = read_.handles.values.size();
      input.places = places_.read(kxGetCell(entry, 1), value);
      const kxArray* isConstant = kxGetCell(entry, 2);
      if (kxGetClassID(isConstant) == kxLOGICAL_CLASS && kxIsScalar(isConstant) &&
          kxGetLogicals(isConstant)[0]) {
        input.constant = constantOf(value);
      }
      input.staysInSession = isFree && !host::isCarryable(value);
      read_.handles.values.push_back(matrix::sharedCopy(value));
    } else {
      refuseDependencies(entry);
    }
    return input;
  }

  ClientPlan read_;
  PlanBuilder builder_{read_.plan};
  ObjectIndex indexOf_;
  PlacesReader places_;
};

}  // namespace

ClientPlan readTaskGraph(const kxArray* taskGraph, const kxArray* asked, const kxArray* others) {
  TaskReader reader;
  const host::Value tasks = host::getProperty(taskGraph, "Tasks");
  const ClosureTasks entries(taskGraph);
  const RecordedStacks stacks(entries);
  for (std::size_t i = 0; i < kxGetNumberOfElements(tasks.get()); ++i) {
    const host::Value task = elementOf(tasks.get(), i);
    errors::catchingFailures([&] { reader.read(task.get(), stacks); },
                             [&](const std::exception_ptr& failure) {
                               const OpSpec planning{.label = "The planning of a task"};
                               raiseStepFailure(failureOf(failure), planning,
                                                stacks.of(task.get()).get());
                             });
  }
  reader.addResults(entries, asked, true);
  reader.addResults(entries, others, false);
  return reader.take();
}

ClientPlan readTask(const host::Value& task) {
  TaskReader reader;
  reader.read(task.get(), RecordedStacks());
  reader.addOutputs();
  return reader.take();
}

}  // namespace kv::runtime

#include "LazySession.h"

#include <memory>
#include <utility>

#include "ki/createManagedObject.h"
#include "lazyeval/applyOperation.h"

namespace bigdata::lazyeval {

using kv::host::ClassDefinition;
using kv::host::MethodDefinition;
using kv::host::NativeBody;

namespace {

/// A stub for an operation class of the host: the positions of the counts of inputs and outputs
/// among the inputs of its constructor; kOne for a count that is always one.
struct OperationRow {
  const char* name;
  int inputsAt, outputsAt;
};
constexpr int kOne = -1;
constexpr OperationRow kOperations[] = {
    {"ReadOperation", kOne, 1},           {"FilterOperation", 0, 0},
    {"LogicalRowSubsrefOperation", 0, 0}, {"SubsrefTabularVarOperation", 0, 1},
    {"AggregateOperation", 3, 4},         {"AggregateByKeyOperation", 3, 4},
    {"NonPartitionedOperation", 2, 3},    {"LogicalElementwiseOperation", 2, 3},
    {"AdaptorAssertionOperation", 2, 3},  {"SmallTallComparisonOperation", 4, 5},
    {"ChunkwiseOperation", 2, 3},         {"FixedChunkwiseOperation", 3, 4},
    {"PartitionwiseOperation", 2, 3},     {"GeneralizedPartitionwiseOperation", 2, 3},
    {"RepartitionOperation", 1, 1},       {"ChunkResizeOperation", 0, 0},
    {"TernaryOperation", kOne, kOne},     {"CacheOperation", kOne, kOne},
};

constexpr auto kOperationClass = "kalvex.bigdata.internal.lazyeval.Operation";

std::shared_ptr<ClassDefinition> simpleClass(std::string name, std::vector<std::string> supers,
                                             const std::vector<std::string>& properties = {}) {
  auto definition = std::make_shared<ClassDefinition>();
  definition->name = std::move(name);
  definition->superclasses = std::move(supers);
  for (const std::string& property : properties) {
    definition->properties.push_back({.name = property, .makeDefault = {}, .compute = {}});
  }
  return definition;
}

}  // namespace

LazySession::LazySession() {
  createTasks = [this](const Call&) { return newTasks(1); };
  defineFunctions();
  defineClasses();
}

void LazySession::defineFunctions() {
  const std::string executorClass = "kalvex.bigdata.internal.executor.PartitionedArrayExecutor.";
  stub("keepAlive");
  stub(executorClass + "default",
       [this](const Call& c) { c.out(0, matrix::sharedCopy(executor.get())); });
  stub(executorClass + "override",
       [this](const Call& c) { c.out(0, matrix::sharedCopy(overridingExecutor.get())); });
  stub(executorClass + "checkDatastoreSupportForDefault");
  stub("checkSameExecutor", [](const Call& c) { c.out(0, kv::host::makeLogical(false)); });
  stub("checkIsValidNow", [](const Call& c) { c.out(0, kv::host::makeLogical(true)); });
  stub("numPartitions", [](const Call& c) { c.out(0, kv::host::makeDouble(7)); });
  stub("kalvex.bigdata.internal.debug.TallProfiler.enabled",
       [](const Call& c) { c.out(0, kv::host::makeLogical(true)); });
  stub("containers.Map", [](const Call& c) {
    std::vector<Value> keysAndValues;
    keysAndValues.push_back(matrix::sharedCopy(c.in(0)));
    keysAndValues.push_back(matrix::sharedCopy(c.in(1)));
    c.out(0, kv::host::makeCell(std::move(keysAndValues)));
  });
}

void LazySession::defineClasses() {
  const std::string root = "kalvex.bigdata.internal.";
  session.defineClass(simpleClass(root + "PartitionedArray", {}));
  session.defineClass(simpleClass(root + "LocalArray", {root + "PartitionedArray"}, {"Value"}));
  session.defineClass(simpleClass(root + "BroadcastArray", {}, {"Value"}));
  session.defineClass(simpleClass("OtherArray", {root + "PartitionedArray"}));
  session.defineClass(simpleClass(root + "executor.TaskGraph", {}));
  session.defineClass(simpleClass(root + "executor.DataProcessorFactory", {}));
  session.defineClass(
      simpleClass(root + "executor.ExecutionTask", {}, {"Id", "OutputPartitionStrategy"}));
  defineOperation("TestOperation", 0, 1);
  for (const OperationRow& row : kOperations) {
    defineOperation(root + "lazyeval." + row.name, row.inputsAt, row.outputsAt);
  }

  auto graph = std::make_shared<kv::host::ClassCompletion>();
  graph->name = root + "lazyeval.LazyTaskGraph";
  graph->methods.push_back({.name = "createExecutionTasks",
                            .body =
                                [this](const Call& c) {
                                  note("createExecutionTasks", c);
                                  c.out(0, createTasks(c));
                                },
                            .access = kcos::MemberAccess::Private,
                            .isStatic = true});
  session.completeClass(graph);

  auto elementwise = std::make_shared<kv::host::ClassCompletion>();
  elementwise->name = root + "lazyeval.ElementwiseOperation";
  elementwise->methods.push_back({.name = "directEvaluateImpl",
                                  .body =
                                      [this](const Call& c) {
                                        note("directEvaluateImpl", c);
                                        for (int i = 0; i < c.nlhs; ++i) {
                                          c.out(i, kv::host::makeDouble(100 + i));
                                        }
                                      },
                                  .access = kcos::MemberAccess::Protected});
  elementwise->methods.push_back(
      {.name = "getCheckedFunctionHandle", .body = [this](const Call& c) {
         note("getCheckedFunctionHandle", c);
         c.out(0, plus());
       }});
  session.completeClass(elementwise);

  auto slicewise = std::make_shared<kv::host::ClassCompletion>();
  slicewise->name = root + "lazyeval.SlicewiseOperation";
  slicewise->methods.push_back(
      {.name = "getCheckedFunctionHandle", .body = [this](const Call& c) { c.out(0, plus()); }});
  session.completeClass(slicewise);
}

/// An operation class that records its constructor's inputs and takes its counts from two of them.
void LazySession::defineOperation(const std::string& name, int inputsAt, int outputsAt) {
  auto definition = simpleClass(name, {kOperationClass}, {"CacheEntryKey"});
  const NativeBody construct = [this, name, inputsAt, outputsAt](const Call& c) {
    note(name, Call{c.nlhs, c.plhs, c.nrhs - 1, c.prhs + 1});
    const Value one = kv::host::makeDouble(1);
    const auto countAt = [&](int at) { return at == kOne ? one.get() : c.in(1 + at); };
    kv::host::constructSuperclass(c.in(0), "kalvex.bigdata.internal.lazyeval.Operation",
                                  {countAt(inputsAt), countAt(outputsAt)});
  };
  definition->constructor = MethodDefinition{.name = name, .body = construct};
  definition->methods.push_back({.name = "createExecutionTasks", .body = [this](const Call& c) {
                                   note("createExecutionTasks", c);
                                   c.out(0, newTasks(1));
                                 }});
  definition->methods.push_back({.name = "directEvaluateImpl", .body = [this](const Call& c) {
                                   note("directEvaluateImpl", c);
                                   c.out(0, kv::host::makeDouble(42));
                                 }});
  session.defineClass(definition);
}

OperationPtr LazySession::operation(int numInputs, int numOutputs) {
  const Value inputs = kv::host::makeDouble(numInputs);
  const Value outputs = kv::host::makeDouble(numOutputs);
  return ki::fromArray<OperationPtr>(call("TestOperation", inputs, outputs).get());
}

ClosurePtr LazySession::closure(std::vector<FuturePtr> inputs, int numOutputs) {
  const int numInputs = static_cast<int>(inputs.size());
  return ki::createManagedObject<Closure>(std::move(inputs), operation(numInputs, numOutputs));
}

PromisePtr LazySession::promise(const ClosurePtr& closure, std::size_t output) {
  return closure->getOutputPromises().at(output).lock();
}

FuturePtr LazySession::future(const ClosurePtr& closure, std::size_t output) {
  return promise(closure, output)->getFuture().lock();
}

FuturePtr LazySession::constant(double value) {
  return ki::createManagedObject<ClosurePromise>(kv::host::makeDouble(value))->getFuture().lock();
}

Value LazySession::lazyArray(const FuturePtr& future) {
  return ki::toArray(ki::createManagedObject<LazyPartitionedArray>(
      ArrayConstructionArgs{future, makeBroadcastMetadata(), matrix::sharedCopy(executor.get())}));
}

Value LazySession::wrapper(std::string_view className, Value value) {
  Value object = make(std::string(className));
  session.set(object.get(), "Value", value.get());
  return object;
}

Value LazySession::newTasks(std::size_t count, const Value& strategy) {
  Value tasks = matrix::from_kalvex(kcos::omCreateKCOSMatrix(
      count, 1, kcos::internal::makeInterned("kalvex.bigdata.internal.executor.ExecutionTask")));
  for (std::size_t i = 0; i < count; ++i) {
    const Value task = make("executor.ExecutionTask");
    const Value id = kv::host::makeString("task_" + std::to_string(++taskCount_));
    session.set(task.get(), "Id", id.get());
    session.set(task.get(), "OutputPartitionStrategy", strategy.get());
    kcos::omSetArrayElement(tasks.get(), i, kcos::omGetArrayElement(task.get(), 0));
  }
  return tasks;
}

}  // namespace bigdata::lazyeval

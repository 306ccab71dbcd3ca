/// Planning a chain of closures with a host side that costs as little as possible: tasks are made
/// once and returned again. It uses names that the core doesn't export, so it links the core
/// itself.
#include <benchmark/benchmark.h>

#include <memory>
#include <string>
#include <vector>

#include "ki/conversions.h"
#include "ki/createManagedObject.h"
#include "ki/hostCalls.h"
#include "kv/bigdata.h"
#include "kv/host/session.h"
#include "lazyeval/Closure.h"
#include "lazyeval/ClosureDependencyWalker.h"
#include "lazyeval/LazyTaskGraph.h"
#include "lazyeval/Operation.h"
#include "util/CosClientTraits.h"

namespace bigdata::lazyeval {

namespace {

using ki::KalvexManagedPtr;
using kv::host::Call;
using kv::host::ClassDefinition;
using kv::host::MethodDefinition;
using kv::host::Value;

constexpr kcos::NameRef kOperationClass = "bench.Operation";
constexpr kcos::NameRef kTaskClass = "kalvex.bigdata.internal.executor.ExecutionTask";
constexpr kcos::NameRef kTaskGraphClass = "kalvex.bigdata.internal.executor.TaskGraph";

std::shared_ptr<ClassDefinition> classNamed(kcos::NameRef name) {
  auto definition = std::make_shared<ClassDefinition>();
  definition->name = name.text();
  return definition;
}

/// A session with the core, and with the host functions that a plan calls.
class PlanningSession {
 public:
  PlanningSession() {
    session.load(KVInitialize_libkvbigdata);
    defineFunctions();
    defineClasses();
    operation_ = kv::host::call(kOperationClass);
    task_ = kv::host::call(kTaskClass);
    session.set(task_.get(), "Id", kv::host::makeString("task_1").get());
  }

  /// The last closure of a chain of `count`.
  KalvexManagedPtr<Closure> chain(std::size_t count) const {
    const auto operation = ki::fromArray<KalvexManagedPtr<Operation>>(operation_.get());
    std::vector<KalvexManagedPtr<ClosureFuture>> inputs;
    KalvexManagedPtr<Closure> last;
    for (std::size_t i = 0; i < count; ++i) {
      last = ki::createManagedObject<Closure>(std::move(inputs), operation);
      inputs = {last->getOutputPromises().front()->getFuture().lock()};
    }
    return last;
  }

  const Value& task() const { return task_; }

  kv::host::Session session;

 private:
  void defineFunctions() {
    session.defineFunction("kalvex.bigdata.internal.debug.TallProfiler.enabled",
                           [](const Call& call) { call.out(0, kv::host::makeLogical(false)); });
    session.defineFunction("containers.Map",
                           [](const Call& call) { call.out(0, kv::host::makeDouble(0)); });
  }

  void defineClasses() {
    session.defineClass(classNamed(kTaskGraphClass));
    auto task = classNamed(kTaskClass);
    task->properties = {{.name = "Id", .makeDefault = {}, .compute = {}},
                        {.name = "OutputPartitionStrategy", .makeDefault = {}, .compute = {}}};
    session.defineClass(task);

    auto operation = classNamed(kOperationClass);
    operation->superclasses = {std::string(Operation::kHostClassName.text())};
    operation->constructor =
        MethodDefinition{.name = std::string(kOperationClass.text()), .body = [](const Call& call) {
                           const Value one = kv::host::makeDouble(1);
                           kv::host::constructSuperclass(call.in(0), Operation::kHostClassName,
                                                         {one.get(), one.get()});
                         }};
    operation->methods = {{.name = "createExecutionTasks", .body = [](const Call&) {}}};
    session.defineClass(operation);

    auto graph = std::make_shared<kv::host::ClassCompletion>();
    graph->name = LazyTaskGraph::kHostClassName.text();
    graph->methods = {
        {.name = "createExecutionTasks",
         .body = [this](const Call& call) { call.out(0, matrix::sharedCopy(task_.get())); },
         .access = kcos::MemberAccess::Private,
         .isStatic = true}};
    session.completeClass(graph);
  }

  kv::host::Session::Scope scope_{session};
  Value operation_;
  Value task_;
};

void countClosures(benchmark::State& state) {
  state.SetItemsProcessed(state.iterations() * state.range(0));
}

/// A whole task graph: the walk, the calls of createExecutionTasks, the arrays and maps of the
/// plan.
void plan(benchmark::State& state) {
  const PlanningSession host;
  const auto last = host.chain(static_cast<std::size_t>(state.range(0)));
  for (auto _ : state) {
    const std::vector<KalvexManagedPtr<Closure>> closures = {last};
    benchmark::DoNotOptimize(ki::createManagedObject<LazyTaskGraph>(closures));
  }
  countClosures(state);
}

/// The same number of calls of createExecutionTasks as in that plan, with inputs of the same kinds.
void createExecutionTasks(benchmark::State& state) {
  const PlanningSession host;
  const Value closure = ki::toArray(host.chain(1));
  const Value profiling = kv::host::makeLogical(false);
  for (auto _ : state) {
    for (std::int64_t i = 0; i < state.range(0); ++i) {
      benchmark::DoNotOptimize(
          ki::callHostMethod(ki::classKey<LazyTaskGraph>(), "createExecutionTasks",
                             util::keptCosClient<LazyTaskGraph>(),
                             {closure.get(), closure.get(), host.task().get(), profiling.get()}));
    }
  }
  countClosures(state);
}

/// The order of closures and the dependencies of each, without work for the host.
void walk(benchmark::State& state) {
  const PlanningSession host;
  const auto last = host.chain(static_cast<std::size_t>(state.range(0)));
  for (auto _ : state) {
    ClosureDependencyWalker walker;
    walker.walk(last);
    for (const ClosureGraphNode& node : walker.nodes()) {
      if (const auto* closure = std::get_if<KalvexManagedPtr<Closure>>(&node)) {
        benchmark::DoNotOptimize((*closure)->getDirectDependencies());
      }
    }
  }
  countClosures(state);
}

BENCHMARK(plan)->Arg(1000)->Arg(100'000)->Unit(benchmark::kMillisecond);
BENCHMARK(createExecutionTasks)->Arg(1000)->Arg(100'000)->Unit(benchmark::kMillisecond);
BENCHMARK(walk)->Arg(1000)->Arg(100'000)->Unit(benchmark::kMillisecond);

}  // namespace

}  // namespace bigdata::lazyeval

BENCHMARK_MAIN();

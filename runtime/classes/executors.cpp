// Both executors run the same evaluation and differ in its number of threads, so the classes
// contain no logic of their own. Besides the promises asked for, an evaluation completes those
// whose values are whole anyway or are marked for reuse: a later plan then starts from them.

#include <algorithm>
#include <array>
#include <memory>
#include <ranges>
#include <string_view>
#include <unordered_set>
#include <utility>
#include <vector>

#include "classes/arrays.h"
#include "classes/classes.h"
#include "classes/definitionHelpers.h"
#include "classes/interrupts.h"
#include "classes/sessionMemory.h"
#include "classes/sessionValues.h"
#include "driver/ClosureTasks.h"
#include "driver/Evaluation.h"
#include "driver/failures.h"
#include "driver/readTaskGraph.h"
#include "executor/threadCount.h"
#include "kv/host/errors.h"
#include "kv/host/freeFunctions.h"
#include "kv/runtime/runtime.h"
#include "persistence/trust.h"
#include "plan/describePlan.h"
#include "plan/missingColumns.h"
#include "plan/rules/rules.h"
#include "values/hostNames.h"

namespace kv::runtime {

namespace {

using host::Call;
using host::Value;

void defaultExecutor(const Call& call) {
  RuntimeState& state = runtimeState();
  if (state.defaultExecutor == nullptr) {
    state.defaultExecutor = host::call(kThreadsExecutor);
  }
  call.out(0, matrix::sharedCopy(state.defaultExecutor.get()));
}

void overrideExecutor(const Call& call) {
  call.out(0, matrix::sharedCopy(runtimeState().executorOverride.get()));
}

/// setOverride(executor): `[]` removes the override.
void setOverride(const Call& call) {
  runtimeState().executorOverride = matrix::sharedCopy(call.in(0));
}

void checkDatastore(const Call& call) {
  if (!kxIsA(call.in(0), kDatastore)) {
    host::raise("KALVEX:datastore:NotSupported", {kxGetClassName(call.in(0))});
  }
}

/// Executors share nothing, so both must be the same object. The executor of an invalid array runs
/// nothing and is compatible with any.
void checkSameExecutor(const Call& call) {
  const bool isAnyInvalid =
      kxIsA(call.in(0), kInvalidExecutor) || kxIsA(call.in(1), kInvalidExecutor);
  if (!isAnyInvalid && !kxIsSameValue(call.in(0), call.in(1))) {
    host::raise("KALVEX:bigdata:array:IncompatibleTallExecutor");
  }
  call.out(0, host::makeLogical(true));
}

/// numPartitions(executor, strategy): the strategy's own number.
void numPartitionsOf(const Call& call) { call.out(0, host::call("numpartitions", {call.in(1)})); }

/// The tasks whose output leaves the graph with its own strategy: materialised values.
std::unordered_set<const kcos::COSInterface*> wholeOutputs(const kxArray* taskGraph) {
  std::unordered_set<const kcos::COSInterface*> found;
  const Value tasks = host::getProperty(taskGraph, "OutputTasks");
  for (std::size_t i = 0; i < kxGetNumberOfElements(tasks.get()); ++i) {
    const kcos::COSInterfacePtr object = kcos::omGetArrayElement(tasks.get(), i);
    const Value task = matrix::from_kalvex(kcos::omCreateKCOSScalar(object));
    if (kcos::omIsKCOS(host::getProperty(task.get(), "OutputPartitionStrategy").get())) {
      found.insert(object.get());
    }
  }
  return found;
}

/// True if the value of a closure must be kept once it is computed.
bool isMarkedForReuse(const kxArray* closure) {
  return kxIsA(host::getProperty(closure, "Operation").get(), kCacheOperation);
}

/// The promises that a task graph completes in addition to the requested ones: those of tasks whose
/// materialised values leave the graph, and of values that are marked for reuse.
Value otherPromises(const kxArray* taskGraph, const ClosureTasks& entries, const kxArray* asked) {
  std::vector<kcos::COSInterfacePtr> promises;
  std::unordered_set<const kcos::COSInterface*> seen;
  const auto add = [&](const kxArray* objects, std::size_t index) {
    kcos::COSInterfacePtr promise = kcos::omGetArrayElement(objects, index);
    if (seen.insert(promise.get()).second) {
      promises.push_back(std::move(promise));
    }
  };
  for (std::size_t i = 0; i < kxGetNumberOfElements(asked); ++i) {
    seen.insert(kcos::omGetArrayElement(asked, i).get());
  }
  const auto whole = wholeOutputs(taskGraph);
  for (std::size_t i = 0; i < entries.size(); ++i) {
    const bool isWhole = whole.contains(kcos::omGetArrayElement(entries.task(i), 0).get());
    if (!isWhole && !isMarkedForReuse(entries.closure(i))) {
      continue;
    }
    const Value outputs = host::getProperty(entries.closure(i), "OutputPromises");
    for (std::size_t k = 0; k < kxGetNumberOfElements(outputs.get()); ++k) {
      add(outputs.get(), k);
    }
  }
  Value column = matrix::from_kalvex(
      kcos::omCreateKCOSMatrix(promises.size(), 1, kcos::internal::makeInterned(kClosurePromise)));
  for (std::size_t i = 0; i < promises.size(); ++i) {
    kcos::omSetArrayElement(column.get(), i, promises[i]);
  }
  return column;
}

/// Opens sessions for free functions: with what the program has defined, stopped as the current
/// session is, and within its memory limit. An evaluation that a function starts there uses one
/// thread.
WorkerSessions::Open workerOpener() {
  const RuntimeState& own = runtimeState();
  return [definitions = host::ProgramDefinitions::ofCurrent(), interrupts = own.interrupts,
          ledger = own.ledger.get(), memoryLimit = own.memoryLimit] {
    auto session = std::make_unique<host::Session>();
    const host::Session::Scope scope(*session);
    load(*session);
    definitions.defineIn(*session);
    RuntimeState& state = runtimeState();
    state.threads = 1;
    state.interrupts = interrupts;
    state.ledger = ledger->share();
    state.memoryLimit = memoryLimit;
    return session;
  };
}

/// What an evaluation of the current session may use. Where it keeps the session, its functions run
/// in the lane: on a worker one might wait for the session.
EvaluationSetup setupWith(int threads) {
  SessionLease* lease = runtimeState().lease;
  const bool hasWorkers = threads > 1 && (lease == nullptr || lease->isReleasable());
  return {threads, lease, hasWorkers ? workerOpener() : nullptr, scratchOfEvaluation()};
}

/// Runs the tasks and completes the promises of a call execute(executor, taskGraph, promises).
void executeOn(int threads, const Call& call) {
  const ClosureTasks entries(call.in(1));
  requireTrustedTasks(call.in(1), entries);
  const Value others = otherPromises(call.in(1), entries, call.in(2));
  const ClientPlan plan = readTaskGraph(call.in(1), call.in(2), others.get());
  asEvaluation([&](const ExecutionContext& context) {
    noteEvaluation(Evaluation(plan, context, setupWith(threads)).run());
  });
}

void executeSerially(const Call& call) { executeOn(1, call); }

void executeOnThreads(const Call& call) {
  const int threads = runtimeState().threads;
  executeOn(threads > 0 ? threads : defaultThreads(), call);
}

/// setThreads(n): the number of threads for evaluations of this session; `[]` for the default.
void setThreadsFunction(const Call& call) {
  if (kxIsEmpty(call.in(0))) {
    runtimeState().threads = 0;
    return;
  }
  const double threads = host::toDouble(call.in(0));
  requireThreads(threads);
  setThreads(static_cast<int>(threads));
}

/// lastEvaluation(): a structure that describes the last evaluation of this session.
void lastEvaluation(const Call& call) {
  const EvaluationFacts& facts = runtimeState().lastEvaluation;
  const std::array<std::pair<std::string_view, double>, 9> fields{{
      {"rows", static_cast<double>(facts.rows)},
      {"passes", static_cast<double>(facts.passes)},
      {"seconds", facts.seconds},
      {"peakBytes", static_cast<double>(facts.peakBytes)},
      {"memoryPeakBytes", static_cast<double>(facts.memoryPeakBytes)},
      {"memoryLimitBytes", static_cast<double>(facts.memoryLimitBytes)},
      {"skippedRows", static_cast<double>(facts.skippedRows)},
      {"spilledBytes", static_cast<double>(facts.spilledBytes)},
      {"spillLevels", static_cast<double>(facts.spillLevels)},
  }};
  std::array<std::string_view, fields.size()> names;
  std::ranges::copy(std::views::keys(fields), names.begin());
  Value record = matrix::from_kalvex(kxCreateStructMatrix(1, 1, names));
  for (const auto& [name, number] : fields) {
    kxSetField(record.get(), 0, name, host::makeDouble(number).release());
  }
  call.out(0, std::move(record));
}

/// The plan that gathering arrays would run.
ClientPlan readObjects(const EvaluationObjects& objects) {
  const Value others = host::makeEmptyDouble();
  return readTaskGraph(objects.taskGraph.get(), objects.promises.get(), others.get());
}

/// explain(arrays...): the plan that gathering them would run; reads no data.
void explain(const Call& call) {
  const EvaluationObjects objects =
      evaluationObjects({call.prhs, static_cast<std::size_t>(call.nrhs)});
  if (objects.taskGraph == nullptr) {
    call.out(0, host::makeString("Everything is there: no pass over the data.\n"));
    return;
  }
  const auto [plan, handles] = readObjects(objects);
  const ShowValue showValue = [&values = handles.values](std::size_t value) {
    return shownValue(values[value].get());
  };
  call.out(0, host::makeString(describePlan(plan, showValue, rulesInForce())));
}

/// checkColumns(arrays...): refuses arrays that read a column which their source lacks.
void checkColumns(const Call& call) {
  const EvaluationObjects objects =
      evaluationObjects({call.prhs, static_cast<std::size_t>(call.nrhs)});
  if (objects.taskGraph != nullptr) {
    throwIfColumnsAreMissing(readObjects(objects).plan);
  }
}

}  // namespace

void setThreads(int threads) {
  if (threads != 0) {
    requireThreads(threads);
  }
  runtimeState().threads = threads;
}

void setSessionLease(SessionLease* lease) { runtimeState().lease = lease; }

void defineExecutors(host::Session& session) {
  define(session, {.name = kExecutor,
                   .methods = {
                       staticMethod("default", defaultExecutor, 0, 0),
                       staticMethod("override", overrideExecutor, 0, 0),
                       staticMethod("setOverride", setOverride, 1, 1),
                       staticMethod("checkDatastoreSupportForDefault", checkDatastore, 1, 1),
                       method(
                           "keepAlive", [](const Call&) {}, 1, 1),
                       method("numPartitions", numPartitionsOf, 2, 2),
                       method(
                           "checkIsValidNow",
                           [](const Call& call) { call.out(0, host::makeLogical(true)); }, 1, 1),
                       method("checkSameExecutor", checkSameExecutor, 2, 2),
                       abstractMethod("execute"),
                   }});
  define(session, {.name = kSerialExecutor,
                   .superclasses = {kExecutor},
                   .methods = {method("execute", executeSerially, 3, 3)}});
  define(session, {.name = kThreadsExecutor,
                   .superclasses = {kExecutor},
                   .methods = {method("execute", executeOnThreads, 3, 3)}});
  session.defineFunction("keepAlive", [](const Call&) {});
  session.defineFunction("kv.lastEvaluation", lastEvaluation);
  session.defineFunction("kv.setThreads", setThreadsFunction);
  session.defineFunction("kv.setMemoryLimit", setMemoryLimitFunction);
  session.defineFunction("kv.setScratch", setScratchFunction);
  session.defineFunction("kv.explain", explain);
  session.defineFunction("kv.checkColumns", checkColumns);
}

}  // namespace kv::runtime

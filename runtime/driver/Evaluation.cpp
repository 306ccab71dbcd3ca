// Round by round, what the schedule finds is run here: tasks of the client at once, a pass as a
// stage whose units are submitted one by one and merged as they end. Materialised values are kept
// by task until the end; only then are promises completed, all or none.

#include "driver/Evaluation.h"

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <iterator>
#include <numeric>
#include <optional>
#include <string_view>
#include <utility>

#include "column/MemoryLedger.h"
#include "column/pool.h"
#include "driver/FreeCalls.h"
#include "driver/SessionFunctions.h"
#include "driver/evaluationMemory.h"
#include "driver/failures.h"
#include "driver/peakMemory.h"
#include "driver/wholeRuns.h"
#include "executor/runStage.h"
#include "kv/errors/StepError.h"
#include "kv/host/errors.h"
#include "plan/condition.h"
#include "plan/lowerPass.h"
#include "plan/rules/rules.h"
#include "values/chunkValues.h"
#include "values/columnValues.h"
#include "values/placesValues.h"

namespace kv::runtime {

namespace {

using host::Value;

/// Raises the failure of a step of a stage with the line where its operation was recorded.
[[noreturn]] void raiseStageFailure(const AssembledStage& assembled,
                                    const errors::FailureRecord& failure, const StageRows& rows) {
  const Value stack = submissionStackOf(assembled.factoryOf(failure.step));
  raiseStepFailure(failure, assembled.specOf(failure.step), stack.get(),
                   FailedRows{failure.partition + 1, failure.firstRow + 1, failure.lastRow,
                              rows.fileOf(failure.partition)});
}

std::vector<const PlanTask*> tasksThatWrite(const Plan& plan) {
  std::vector<const PlanTask*> writers;
  for (const PlanTask& task : plan.tasks) {
    const auto* sink = task.spec->op != nullptr ? task.spec->op->as<SinkOperator>() : nullptr;
    if (sink != nullptr && sink->target() != nullptr) {
      writers.push_back(&task);
    }
  }
  return writers;
}

std::vector<std::string> filesRead(const Plan& plan) {
  std::vector<std::string> files;
  for (const PlanTask& task : plan.tasks) {
    if (const auto source = task.spec->source()) {
      std::ranges::move(source->files(), std::back_inserter(files));
    }
  }
  return files;
}

/// Does nothing if another thread's evaluation has completed the promise meanwhile.
void complete(const Value& promise, const MaterialisedValue& whole) {
  if (host::toLogical(host::getProperty(promise.get(), "IsDone").get())) {
    return;
  }
  if (whole.places) {
    const Value metadata = toMetadata(*whole.places);
    host::callMany("hSetMetadata", 0, std::vector<const kxArray*>{promise.get(), metadata.get()});
  }
  host::callMany("setValue", 0, std::vector<const kxArray*>{promise.get(), whole.value.get()});
}

/// In the test world in which nothing of a stage but its bytes is used, to run it and to merge its
/// results: the stage that they give. Only how its source is cut stays here, and goes with units.
std::optional<Stage> fromItsBytes(const Stage& stage, const ExecutionContext& context) {
  const char* world = std::getenv("KV_STAGE_BYTES");
  const bool isOn = world != nullptr && std::string_view(world) == "1";
  return isOn ? std::optional(Stage::fromBytes(stage.toBytes(), context.pool)) : std::nullopt;
}

[[noreturn]] void refuse(const OpSpec& recorded) {
  if (recorded.savedRelease.empty()) {
    host::raise("KALVEX:array:NotRunnable", {recorded.label});
  }
  host::raise("KALVEX:bigdata:array:InvalidTallVersion", {recorded.savedRelease});
}

}  // namespace

EvaluationFacts nothingToEvaluate() { return {.peakBytes = peakResidentBytes()}; }

Evaluation::Evaluation(const ClientPlan& client, const ExecutionContext& context,
                       EvaluationSetup setup)
    : plan_(client.plan),
      handles_(client.handles),
      rules_(rulesInForce()),
      threads_(setup.threads),
      lease_(setup.lease),
      scratch_(std::move(setup.scratch.folder), setup.scratch.limitBytes,
               setup.scratch.spillsAlways, context.cancellation),
      context_{context.pool, context.cancellation, context.now, usableScratch()},
      workers_(std::move(setup.openWorker)),
      schedule_(plan_),
      rowSpaces_(plan_),
      values_(plan_.tasks.size()) {}

/// Runs `action` for a task; a failure becomes one of its step.
template <class Action>
void Evaluation::withTask(const PlanTask& task, Action&& action, std::string_view memoryId) const {
  withStep(*task.spec, handles_.factoryOf(task), std::forward<Action>(action), memoryId);
}

EvaluationFacts Evaluation::run() {
  const Clock::time_point start = context_.now();
  const ContextScope scope(context_);
  freeGarbageIfHalfIsUsed();
  refuseTargets();
  while (const std::optional<Round> round = schedule_.next()) {
    refuseWhatCannotRun();
    for (const int task : round->clientTasks) {
      runInClient(task);
    }
    for (const std::vector<PassSink>& sinks : round->passes) {
      const PlanTask& first = plan_.task(sinks.front().task);
      withTask(first, [&] { runPass(sinks); });
    }
    facts_.passes += round->readsData ? 1 : 0;
  }
  completePromises();
  facts_.seconds = std::chrono::duration<double>(context_.now() - start).count();
  facts_.peakBytes = peakResidentBytes();
  facts_.spilledBytes = scratch_.spilledBytes();
  facts_.spillLevels = scratch_.levels();
  return facts_;
}

std::vector<MaterialisedValue> Evaluation::takeOutputs(int task) {
  return std::move(values_[static_cast<std::size_t>(task)]);
}

void Evaluation::refuseWhatCannotRun() const {
  for (int i = 0; i < static_cast<int>(plan_.tasks.size()); ++i) {
    const PlanTask& task = plan_.task(i);
    if (!task.spec->isRunnable && schedule_.isNeeded(i)) {
      withTask(task, [&] { refuse(*task.spec); });
    }
  }
  for (const RowConflict& conflict : rowSpaces_.conflicts()) {
    if (schedule_.isNeeded(conflict.task)) {
      withTask(plan_.task(conflict.task), [&] { rowSpaces_.refuse(conflict); });
    }
  }
}

/// Refuses to write over a file that the same graph reads, or over what may not be replaced.
void Evaluation::refuseTargets() const {
  const std::vector<const PlanTask*> writers = tasksThatWrite(plan_);
  if (writers.empty()) {
    return;
  }
  const std::vector<std::string> files = filesRead(plan_);
  for (const PlanTask* task : writers) {
    withTask(*task, [&] { checkTarget(*task->spec->op->as<SinkOperator>()->target(), files); });
  }
}

void Evaluation::runInClient(int index) {
  context_.cancellation.throwIfCancelled();
  const PlanTask& task = plan_.task(index);
  if (task.spec->isChoice && schedule_.branchOf(index) == Branch::Unknown) {
    withTask(task, [&] {
      const MaterialisedValue condition = inputValue(task.inputs[0], handles_, values_);
      const bool isTrue = isConditionTrue(toColumn(condition.value.get()));
      schedule_.setBranch(index, isTrue ? Branch::First : Branch::Second);
    });
    return;
  }
  std::vector<MaterialisedValue> wholes;
  std::vector<const kxArray*> inputs;
  for (const PlanInput* input : schedule_.inputsOf(index)) {
    wholes.push_back(inputValue(*input, handles_, values_));
    inputs.push_back(wholes.back().value.get());
  }
  withTask(task, [&] {
    values_[static_cast<std::size_t>(index)] =
        materialisedValues(runWhole(*task.spec, handles_.factoryOf(task), inputs));
  });
  schedule_.setDone(index);
}

/// A pass that the memory limit didn't allow runs again if there was garbage.
void Evaluation::runPass(const std::vector<PassSink>& sinks) {
  const PassGraph pass = lowerPass(plan_, schedule_, sinks, rules_);
  const AssembledStage assembled = assembleStage(pass, plan_, handles_, values_);
  const StageRows rows(assembled.stage);
  std::optional<errors::FailureRecord> failed = runUnits(assembled, rows, sinks, pass.sinks);
  const bool mayRepeat = std::ranges::none_of(
      assembled.stage.steps(), [](const Step& step) { return step.op->facts().hasSideEffects; });
  if (failed && isOfMemory(*failed) && mayRepeat && freeGarbage()) {
    failed = runUnits(assembled, rows, sinks, pass.sinks);
  }
  if (failed) {
    raiseStageFailure(assembled, *failed, rows);
  }
}

/// Runs the units of a stage and, unless one fails, takes their results.
std::optional<errors::FailureRecord> Evaluation::runUnits(const AssembledStage& assembled,
                                                          const StageRows& rows,
                                                          const std::vector<PassSink>& sinks,
                                                          const std::vector<SinkPlace>& places) {
  SessionFunctions functions(assembled);
  refuseLargeResults(sinks, places, knownResultBytes(assembled.stage, rows, functions, context_));
  const std::optional<Stage> read = fromItsBytes(assembled.stage, context_);
  const Stage& stage = read ? *read : assembled.stage;
  OrderedMerge merge(stage, functions, rows.numPartitions());
  const FreeCalls freeCalls(assembled, workers_);
  const auto units = makeUnitService(threadsFor(stage, threads_), rows.numPartitions());
  auto failed =
      runStage(*units, {stage, functions, context_, lease_, &freeCalls}, merge, rows, nextStage_++);
  if (!failed) {
    takeResults(sinks, places, PassResults(stage, merge, noteRows(stage, rows, merge)));
  }
  return failed;
}

/// Refuses rows of a known size that the memory limit doesn't allow, before they are read.
void Evaluation::refuseLargeResults(const std::vector<PassSink>& sinks,
                                    const std::vector<SinkPlace>& places,
                                    const std::vector<std::int64_t>& bytes) const {
  const MemoryLedger* ledger = currentLedger();
  const std::int64_t all = std::accumulate(bytes.begin(), bytes.end(), std::int64_t{0});
  if (all > 0 && ledger != nullptr && all > ledger->limit() - ledger->bytes_allocated()) {
    freeGarbage();
  }
  std::int64_t need = ledger != nullptr ? ledger->bytes_allocated() : 0;
  for (std::size_t sink = 0; sink < sinks.size() && ledger != nullptr; ++sink) {
    const std::int64_t ofSink = bytes[places[sink].output];
    need += ofSink;
    if (ofSink > 0 && need > ledger->limit()) {
      const PlanTask& task = plan_.task(sinks[sink].task);
      withTask(task, [&] {
        errors::raiseStep(kResultTooLarge,
                          {task.spec->label, shownBytes(need), shownBytes(ledger->limit())});
      });
    }
  }
}

/// The cut of the rows; what was read of each source is counted once.
std::shared_ptr<const RowCut> Evaluation::noteRows(const Stage& stage, const StageRows& rows,
                                                   const OrderedMerge& merge) {
  auto cut = std::make_shared<RowCut>();
  cut->source = rows.source();
  cut->partitionRows = merge.partitionRows();
  cut->partitionRows.resize(static_cast<std::size_t>(rows.numPartitions()));
  facts_.skippedRows += merge.skippedRows();
  if (!stage.sources().empty() && sourcesSeen_.insert(cut->source).second) {
    facts_.cut = sourcesSeen_.size() == 1 ? cut : nullptr;
    facts_.rows =
        std::accumulate(cut->partitionRows.begin(), cut->partitionRows.end(), facts_.rows);
  }
  return cut;
}

void Evaluation::takeResults(const std::vector<PassSink>& sinks,
                             const std::vector<SinkPlace>& places, PassResults results) {
  for (std::size_t sink = 0; sink < sinks.size(); ++sink) {
    const auto& [index, output, isAggregate] = sinks[sink];
    const PlanTask& task = plan_.task(index);
    std::vector<MaterialisedValue>& values = values_[static_cast<std::size_t>(index)];
    const auto take = [&, number = output, isWhole = isAggregate] {
      if (isWhole) {
        values = results.allOf(task, places[sink],
                               task.makesRows ? rowSpaces_.nameOf(index) : std::string());
      } else {
        values.resize(task.spec->numOutputs);
        values[number] = results.rowsOf(task, places[sink]);
      }
    };
    withTask(task, take, isAggregate ? kLimitTooSmall : kResultTooLarge);
    if (isAggregate) {
      schedule_.setDone(index);
    } else {
      schedule_.setKept(index, output);
    }
  }
}

void Evaluation::completePromises() {
  for (std::size_t i = 0; i < handles_.promises.size(); ++i) {
    const PlanResult& result = plan_.results[i];
    const auto& values = values_[static_cast<std::size_t>(result.task)];
    const bool isThere = result.output < values.size() && values[result.output].value != nullptr;
    if (isThere) {
      withTask(plan_.task(result.task),
               [&] { complete(handles_.promises[i], values[result.output]); });
    }
  }
}

}  // namespace kv::runtime

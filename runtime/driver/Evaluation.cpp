// Round by round, what the schedule finds is run here: tasks of the client at once, a pass as a
// stage whose units are submitted one by one and merged as they end. Whole values are kept by task
// until the end; only then are promises completed, all or none.

#include "driver/Evaluation.h"

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <iterator>
#include <map>
#include <numeric>
#include <optional>
#include <string_view>
#include <utility>

#include "column/MemoryLedger.h"
#include "column/pool.h"
#include "driver/FreeCalls.h"
#include "driver/SessionFunctions.h"
#include "driver/failures.h"
#include "driver/peakMemory.h"
#include "driver/wholeRuns.h"
#include "executor/runStage.h"
#include "kv/errors/StepError.h"
#include "kv/host/collectGarbage.h"
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

/// The values of an aggregate.
std::vector<Value> valuesOf(const MergedSink& merged) {
  if (merged.reduced != nullptr) {
    return SessionFunctions::valuesOf(merged.reduced);
  }
  std::vector<Value> values;
  for (const Chunk& array : merged.arrays) {
    values.push_back(toValue(array));
  }
  return values;
}

/// The keys, and the values of one task from number `first` on.
std::vector<Chunk> arraysOf(const MergedSink& merged, std::size_t first, std::size_t numOutputs) {
  std::vector<Chunk> arrays{merged.arrays.front()};
  for (std::size_t output = 1; output < numOutputs; ++output) {
    arrays.push_back(merged.arrays[std::min(first + output, merged.arrays.size() - 1)]);
  }
  return arrays;
}

/// The cut of the rows that a step of the stage has made.
std::shared_ptr<const RowCut> cutOfMade(const Stage& stage, std::size_t step,
                                        const OrderedMerge& merge, const RowCut& source) {
  return std::make_shared<const RowCut>(
      RowCut{stage.steps()[step].rowSpace, merge.madeRows(step, source.numPartitions())});
}

/// True in the test world in which each stage is run from its bytes.
bool runStagesFromBytes() {
  const char* world = std::getenv("KV_STAGE_BYTES");
  return world != nullptr && std::string_view(world) == "1";
}

/// One thread for a stage whose units keep all rows of their partitions, if these would take a good
/// part of the memory.
int threadsFor(const Stage& stage, int threads) {
  constexpr std::int64_t kLeastBytes = std::int64_t{256} << 20;  // four partitions
  const MemoryLedger* ledger = currentLedger();
  const bool keeps = std::ranges::any_of(
      stage.steps(), [](const Step& step) { return step.op->facts().keepsForOrder; });
  return keeps && ledger != nullptr && ledger->limit() < kLeastBytes ? 1 : threads;
}

/// Joins the rows that all partitions kept. Those of the unit without rows, which only have types,
/// join those of the last partition.
WholeValue joinKept(const OpSpec& spec, std::vector<std::vector<Chunk>> partitions,
                    const std::shared_ptr<const RowCut>& cut, std::int64_t frameRows) {
  if (std::ssize(partitions) > cut->numPartitions()) {
    const std::vector<Chunk> withoutRows = std::move(partitions.back());
    partitions.pop_back();
    partitions.back().insert(partitions.back().end(), withoutRows.begin(), withoutRows.end());
  }
  return joinRows(std::move(partitions), cut, describe(spec), frameRows);
}

/// Does nothing if another thread's evaluation has completed the promise meanwhile.
void complete(const Value& promise, const WholeValue& whole) {
  if (host::toLogical(host::getProperty(promise.get(), "IsDone").get())) {
    return;
  }
  if (whole.places) {
    const Value metadata = toMetadata(*whole.places);
    host::callMany("hSetMetadata", 0, std::vector<const kxArray*>{promise.get(), metadata.get()});
  }
  host::callMany("setValue", 0, std::vector<const kxArray*>{promise.get(), whole.value.get()});
}

bool isOfMemory(const errors::FailureRecord& failure) {
  return failure.error.identifier == kLimitTooSmall || failure.error.identifier == kResultTooLarge;
}

/// Frees values that only cycles of objects hold.
/// Result: true if there is more memory within the limit.
bool freeGarbage() {
  const MemoryLedger* ledger = currentLedger();
  const std::int64_t before = ledger != nullptr ? ledger->bytes_allocated() : 0;
  host::collectGarbage();
  return ledger != nullptr && ledger->bytes_allocated() < before;
}

[[noreturn]] void refuse(const OpSpec& recorded) {
  if (recorded.savedRelease.empty()) {
    host::raise("KALVEX:array:NotRunnable", {recorded.label});
  }
  host::raise("KALVEX:bigdata:array:InvalidTallVersion", {recorded.savedRelease});
}

}  // namespace

EvaluationFacts nothingToEvaluate() { return {.peakBytes = peakResidentBytes()}; }

Evaluation::Evaluation(const ClientPlan& client, const CancellationToken& cancellation,
                       EvaluationSetup setup)
    : plan_(client.plan),
      handles_(client.handles),
      rules_(rulesInForce()),
      cancellation_(cancellation),
      threads_(setup.threads),
      lease_(setup.lease),
      scratch_(std::move(setup.scratch.folder), setup.scratch.limitBytes,
               setup.scratch.spillsAlways, cancellation),
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
  const auto start = std::chrono::steady_clock::now();
  const MemoryLedger* ledger = currentLedger();
  if (ledger != nullptr && ledger->bytes_allocated() > ledger->limit() / 2) {
    freeGarbage();
  }
  const ScratchScope scratch(usableScratch());
  refuseTargets();
  while (const std::optional<Round> round = schedule_.next()) {
    refuseWhatCannotRun();
    for (const int task : round->clientTasks) {
      runInClient(task);
    }
    for (const std::vector<PassSink>& sinks : round->passes) {
      const PlanTask& first = plan_.task(sinks.front().task);
      withTask(first, [&] { runStage(sinks); });
    }
    facts_.passes += round->readsData ? 1 : 0;
  }
  completePromises();
  facts_.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  facts_.peakBytes = peakResidentBytes();
  facts_.spilledBytes = scratch_.spilledBytes();
  facts_.spillLevels = scratch_.levels();
  return facts_;
}

std::vector<WholeValue> Evaluation::takeOutputs(int task) {
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
  cancellation_.throwIfCancelled();
  const PlanTask& task = plan_.task(index);
  if (task.spec->isChoice && schedule_.branchOf(index) == Branch::Unknown) {
    withTask(task, [&] {
      const WholeValue condition = inputValue(task.inputs[0], handles_, values_);
      const bool isTrue = isConditionTrue(toColumn(condition.value.get()));
      schedule_.setBranch(index, isTrue ? Branch::First : Branch::Second);
    });
    return;
  }
  std::vector<WholeValue> wholes;
  std::vector<const kxArray*> inputs;
  for (const PlanInput* input : schedule_.inputsOf(index)) {
    wholes.push_back(inputValue(*input, handles_, values_));
    inputs.push_back(wholes.back().value.get());
  }
  withTask(task, [&] {
    values_[static_cast<std::size_t>(index)] =
        wholeValues(runWhole(*task.spec, handles_.factoryOf(task), inputs));
  });
  schedule_.setDone(index);
}

/// A stage that the memory limit didn't allow runs again if there was garbage.
void Evaluation::runStage(const std::vector<PassSink>& sinks) {
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
  const Stage& stage = assembled.stage;
  SessionFunctions functions(assembled);
  const ExecutionContext context{
      .pool = currentPool(), .cancellation = cancellation_, .scratch = usableScratch()};
  refuseLargeResults(sinks, places, knownResultBytes(stage, rows, functions, context));
  OrderedMerge merge(stage, functions, rows.numPartitions());
  std::optional<Stage> fromBytes;
  if (runStagesFromBytes()) {
    fromBytes = Stage::fromBytes(stage.toBytes(), context.pool);
  }
  const FreeCalls freeCalls(assembled, workers_);
  const auto units =
      makeUnitService(threadsFor(stage, threads_), rows.numPartitions(),
                      {fromBytes ? *fromBytes : stage, functions, context, lease_, &freeCalls});
  auto failed = kv::runtime::runStage(*units, merge, rows, nextStage_++);
  if (!failed) {
    takeResults(stage, sinks, places, merge, noteRows(rows, !stage.sources().empty(), merge));
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
std::shared_ptr<const RowCut> Evaluation::noteRows(const StageRows& rows, bool isData,
                                                   const OrderedMerge& merge) {
  auto cut = std::make_shared<RowCut>();
  cut->source = rows.source();
  cut->partitionRows = merge.partitionRows();
  cut->partitionRows.resize(static_cast<std::size_t>(rows.numPartitions()));
  facts_.skippedRows += merge.skippedRows();
  if (isData && sourcesSeen_.insert(cut->source).second) {
    facts_.cut = sourcesSeen_.size() == 1 ? cut : nullptr;
    facts_.rows =
        std::accumulate(cut->partitionRows.begin(), cut->partitionRows.end(), facts_.rows);
  }
  return cut;
}

void Evaluation::takeResults(const Stage& stage, const std::vector<PassSink>& sinks,
                             const std::vector<SinkPlace>& places, OrderedMerge& merge,
                             const std::shared_ptr<const RowCut>& cut) {
  std::map<std::size_t, MergedSink> merged;  // by output: several sinks may have one
  for (std::size_t sink = 0; sink < sinks.size(); ++sink) {
    const auto& [index, output, isAggregate] = sinks[sink];
    const auto& [place, firstValue] = places[sink];
    const PlanTask& task = plan_.task(index);
    std::vector<WholeValue>& values = values_[static_cast<std::size_t>(index)];
    const auto take = [&, number = output, place = place, first = firstValue] {
      if (!merged.contains(place)) {
        merged.emplace(place, merge.finish(place));
      }
      MergedSink& result = merged.at(place);
      if (task.makesRows) {
        values = madeRows(arraysOf(result, first, task.spec->numOutputs), result.partitionRows,
                          rowSpaces_.nameOf(index), describe(*task.spec));
      } else if (task.spec->endsRows()) {
        values = wholeValues(valuesOf(result));
      } else {
        values.resize(task.spec->numOutputs);
        const Cut& kept = stage.cutOf(stage.outputs()[place]);
        values[number] = joinKept(*task.spec, std::move(result.partitions),
                                  kept.madeBy ? cutOfMade(stage, *kept.madeBy, merge, *cut) : cut,
                                  kept.frameRows);
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

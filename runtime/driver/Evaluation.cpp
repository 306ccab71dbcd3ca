#include "driver/Evaluation.h"

#include <algorithm>
#include <chrono>
#include <optional>
#include <string>
#include <utility>

#include "driver/SessionFunctions.h"
#include "driver/clientTasks.h"
#include "driver/peakMemory.h"
#include "engine/Unit.h"
#include "engine/chunkSteps.h"
#include "engine/failures.h"
#include "kv/host/errors.h"
#include "values/columnValues.h"

namespace kv::runtime {
namespace {

using host::Value;

/// Raises the failure of a step of a stage with the line where its operation was recorded.
[[noreturn]] void raiseStageFailure(const AssembledStage& assembled,
                                    const errors::FailureRecord& failure) {
  const Value stack = submissionStackOf(assembled.factoryOf(failure.step).get());
  raiseStepFailure(failure, *assembled.stage().steps()[failure.step].spec, stack.get(),
                   FailedRows{failure.partition + 1, failure.firstRow + 1, failure.lastRow});
}

/// Takes in the types that users' functions returned in one more partition.
void addTypes(std::map<std::size_t, OutputTypes>& types, const UnitResult& result,
              const AssembledStage& assembled) {
  for (const auto& [step, ofPartition] : result.types) {
    for (std::size_t output = 0; output < ofPartition.seen().size(); ++output) {
      const std::optional<OutputTypes::Seen>& seen = ofPartition.seen()[output];
      if (!seen) {
        continue;
      }
      const OpSpec& spec = *assembled.stage().steps()[step].spec;
      errors::catchingFailures([&] { types[step].add(spec, output, seen->type, seen->rows); },
                               [&, number = step](const std::exception_ptr& thrown) {
                                 errors::FailureRecord failure = errors::recordFailure(thrown);
                                 failure.step = number;
                                 failure.partition = seen->rows.partition;
                                 failure.firstRow = seen->rows.first;
                                 failure.lastRow = seen->rows.last;
                                 raiseStageFailure(assembled, failure);
                               });
    }
  }
}

/// Joins the rows that all partitions kept for one sink.
WholeValue joinKept(const OpSpec& spec, std::size_t sink, std::vector<UnitResult>& results,
                    const std::shared_ptr<const RowCut>& cut) {
  std::vector<std::vector<Chunk>> partitions;
  for (UnitResult& result : results) {
    partitions.push_back(std::move(result.sinks[sink].chunks));
  }
  return joinRows(partitions, cut, describe(spec));
}

void complete(const Value& promise, const WholeValue& whole) {
  if (whole.places) {
    const Value metadata = whole.places->toMetadata();
    host::callMany("hSetMetadata", 0, std::vector<const kxArray*>{promise.get(), metadata.get()});
  }
  host::callMany("setValue", 0, std::vector<const kxArray*>{promise.get(), whole.value.get()});
}

/// Joins what the chunks of all partitions gave for one output of a user's aggregate.
Value joinPartials(std::size_t sink, std::size_t output, const std::vector<UnitResult>& results) {
  std::vector<Column> parts;
  for (const UnitResult& result : results) {
    for (const std::vector<Column>& ofChunk : result.sinks[sink].partials) {
      parts.push_back(ofChunk.at(output));
    }
  }
  return toValue(concatenate(parts));
}

/// The first function of a user's aggregate that found no row in any chunk is called once, so that
/// the second has something to reduce.
void callOnNoRows(const Plan& plan, const std::vector<PassSink>& sinks,
                  const AssembledStage& assembled, SessionFunctions& functions,
                  std::vector<UnitResult>& results) {
  for (std::size_t sink = 0; sink < sinks.size(); ++sink) {
    const PlanTask& task = plan.task(sinks[sink].task);
    const bool hasPartials = std::ranges::any_of(
        results, [sink](const UnitResult& result) { return !result.sinks[sink].partials.empty(); });
    if (sinks[sink].isAggregate && !task.spec->function.isBuiltIn() && !hasPartials &&
        !results.empty()) {
      SinkResult& first = results.front().sinks[sink];
      withStep(*task.spec, task.factory.get(), [&] {
        OutputTypes types;
        first.partials.push_back(
            functions.call(assembled.stage().outputs()[sink], Chunk{}, first.noRows, types));
      });
    }
  }
}

[[noreturn]] void refuse(const OpSpec& recorded) {
  if (recorded.savedRelease.empty()) {
    host::raise("KALVEX:array:NotRunnable", {recorded.label});
  }
  host::raise("KALVEX:bigdata:array:InvalidTallVersion", {recorded.savedRelease});
}

}  // namespace

EvaluationFacts nothingToEvaluate() { return {.peakBytes = peakResidentBytes()}; }

Evaluation::Evaluation(const Plan& plan, const CancellationToken& cancellation)
    : plan_(plan), cancellation_(cancellation), schedule_(plan), values_(plan.tasks.size()) {}

EvaluationFacts Evaluation::run() {
  const auto start = std::chrono::steady_clock::now();
  while (const std::optional<Round> round = schedule_.next()) {
    refuseRecordedTasks();
    for (const int task : round->clientTasks) {
      runInClient(task);
    }
    for (const std::vector<PassSink>& sinks : round->passes) {
      const PlanTask& first = plan_.task(sinks.front().task);
      withStep(*first.spec, first.factory.get(), [&] { runStage(sinks); });
    }
    facts_.passes += round->readsData ? 1 : 0;
  }
  completePromises();
  facts_.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  facts_.peakBytes = peakResidentBytes();
  return facts_;
}

std::vector<WholeValue> Evaluation::takeOutputs(int task) {
  return std::move(values_[static_cast<std::size_t>(task)]);
}

void Evaluation::refuseRecordedTasks() const {
  for (int i = 0; i < static_cast<int>(plan_.tasks.size()); ++i) {
    const PlanTask& task = plan_.task(i);
    if (task.spec->kind == OpKind::Recorded && schedule_.isNeeded(i)) {
      withStep(*task.spec, task.factory.get(), [&] { refuse(*task.spec); });
    }
  }
}

void Evaluation::runInClient(int index) {
  cancellation_.throwIfCancelled();
  const PlanTask& task = plan_.task(index);
  if (task.spec->kind == OpKind::Choose && schedule_.branchOf(index) == Branch::Unknown) {
    withStep(*task.spec, task.factory.get(), [&] {
      const WholeValue condition = inputValue(task.inputs[0], values_);
      const bool isTrue = isConditionTrue(toColumn(condition.value.get()));
      schedule_.setBranch(index, isTrue ? Branch::First : Branch::Second);
    });
    return;
  }
  std::vector<WholeValue> inputs;
  for (const PlanInput* input : schedule_.inputsOf(index)) {
    inputs.push_back(inputValue(*input, values_));
  }
  withStep(*task.spec, task.factory.get(),
           [&] { values_[static_cast<std::size_t>(index)] = runClientTask(task, inputs); });
  schedule_.setDone(index);
}

void Evaluation::runStage(const std::vector<PassSink>& sinks) {
  const AssembledStage assembled = assembleStage(plan_, schedule_, sinks, values_);
  const Stage& stage = assembled.stage();
  const StageRows rows(stage, assembled.inputs);
  SessionFunctions functions(assembled);
  const std::uint64_t number = nextStage_++;
  std::vector<UnitResult> results;
  std::map<std::size_t, OutputTypes> types;
  for (std::int64_t i = 0; i < rows.numPartitions(); ++i) {
    const Unit unit{.stage = number, .partition = i, .numPartitions = rows.numPartitions()};
    results.push_back(
        runUnit(stage, rows, unit.toBytes(), assembled.inputs, functions, cancellation_));
    addTypes(types, results.back(), assembled);
    if (const auto& failure = results.back().failure) {
      raiseStageFailure(assembled, *failure);
    }
  }
  callOnNoRows(plan_, sinks, assembled, functions, results);
  takeResults(sinks, results, noteRows(rows, stage.readsSource(), results));
}

/// The cut of the rows; what was read of each source is counted once.
std::shared_ptr<const RowCut> Evaluation::noteRows(const StageRows& rows, bool isData,
                                                   const std::vector<UnitResult>& results) {
  auto cut = std::make_shared<RowCut>();
  cut->source = rows.source();
  const bool isNew = isData && sourcesSeen_.insert(cut->source).second;
  for (const UnitResult& result : results) {
    cut->addPartition(result.chunkRows);
    facts_.rows += isNew ? result.rows : 0;
  }
  return cut;
}

void Evaluation::takeResults(const std::vector<PassSink>& sinks, std::vector<UnitResult>& results,
                             const std::shared_ptr<const RowCut>& cut) {
  for (std::size_t sink = 0; sink < sinks.size(); ++sink) {
    const auto& [index, output, isAggregate] = sinks[sink];
    const PlanTask& task = plan_.task(index);
    std::vector<WholeValue>& values = values_[static_cast<std::size_t>(index)];
    withStep(*task.spec, task.factory.get(), [&, number = output] {
      if (sinks[sink].isAggregate) {
        values = mergeAggregate(task, sink, results);
      } else {
        values.resize(task.spec->numOutputs);
        values[number] = joinKept(*task.spec, sink, results, cut);
      }
    });
    if (isAggregate) {
      schedule_.setDone(index);
    } else {
      schedule_.setKept(index, output);
    }
  }
}

std::vector<WholeValue> Evaluation::mergeAggregate(const PlanTask& task, std::size_t sink,
                                                   const std::vector<UnitResult>& results) const {
  if (const AggregateFunction* function = task.spec->function.aggregate) {
    std::vector<AggregatePartial> partials;
    for (const UnitResult& result : results) {
      partials.push_back(AggregatePartial::fromBytes(result.sinks[sink].partial));
    }
    std::vector<WholeValue> outputs;
    outputs.push_back({toValue(combinePartials(function->kind, partials))});
    return outputs;
  }
  std::vector<Value> partials;
  for (std::size_t output = 0; output < task.spec->numOutputs; ++output) {
    partials.push_back(joinPartials(sink, output, results));
  }
  return reducePartials(task.factory.get(), task.spec->numOutputs, partials);
}

void Evaluation::completePromises() {
  for (const PlanResult& result : plan_.results) {
    const auto& values = values_[static_cast<std::size_t>(result.task)];
    const bool isThere = result.output < values.size() && values[result.output].value != nullptr;
    if (isThere && result.promise != nullptr) {
      const PlanTask& task = plan_.task(result.task);
      withStep(*task.spec, task.factory.get(),
               [&] { complete(result.promise, values[result.output]); });
    }
  }
}

}  // namespace kv::runtime

#include "execution/Evaluation.h"

#include <algorithm>
#include <chrono>
#include <map>
#include <optional>
#include <string>
#include <utility>

#include "execution/SessionFunctions.h"
#include "execution/Unit.h"
#include "execution/clientTasks.h"
#include "execution/failures.h"
#include "execution/peakMemory.h"
#include "kv/host/errors.h"
#include "values/columnValues.h"

namespace kv::runtime {
namespace {

using host::Value;

/// Raises the failure of a step of a stage with the line where its operation was recorded.
[[noreturn]] void raiseStageFailure(const AssembledStage& assembled, std::size_t step,
                                    const std::exception_ptr& error, const GivenRows& rows) {
  const Value stack = submissionStackOf(assembled.factoryOf(step).get());
  raiseStepFailure(error, *assembled.stage().steps()[step].spec, stack.get(),
                   FailedRows{rows.partition + 1, rows.first + 1, rows.last});
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
      catchingFailures([&] { types[step].add(spec, output, seen->type, seen->rows); },
                       [&](const std::exception_ptr& error) {
                         raiseStageFailure(assembled, step, error, seen->rows);
                       });
    }
  }
}

/// The source from which the rows of each task flow, as a number; -1 for whole values.
std::vector<int> sourceOfTasks(const Plan& plan) {
  std::map<std::string, int> numbers;
  std::vector<int> sourceOf(plan.tasks.size(), -1);
  for (std::size_t i = 0; i < plan.tasks.size(); ++i) {
    if (const auto& source = plan.tasks[i].spec->source) {
      const int next = static_cast<int>(numbers.size());
      sourceOf[i] = numbers.emplace(source->fingerprint(), next).first->second;
    }
    for (const PlanInput& input : plan.tasks[i].inputs) {
      if (input.task >= 0 && plan.tasks[static_cast<std::size_t>(input.task)].isPartitioned) {
        sourceOf[i] = std::max(sourceOf[i], sourceOf[static_cast<std::size_t>(input.task)]);
      }
    }
  }
  return sourceOf;
}

/// Joins the rows that all partitions kept for one sink.
WholeValue joinKept(std::size_t sink, std::vector<UnitResult>& results) {
  std::vector<std::vector<Chunk>> partitions;
  for (UnitResult& result : results) {
    partitions.push_back(std::move(result.sinks[sink].chunks));
  }
  return joinRows(partitions);
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

[[noreturn]] void refuse(const OpSpec& recorded) {
  if (recorded.savedRelease.empty()) {
    host::raise("KALVEX:array:NotRunnable", {recorded.label});
  }
  host::raise("KALVEX:bigdata:array:InvalidTallVersion", {recorded.savedRelease});
}

}  // namespace

EvaluationFacts nothingToEvaluate() { return {.peakBytes = peakResidentBytes()}; }

Evaluation::Evaluation(const Plan& plan, const CancellationToken& cancellation,
                       SourceRows& sourceRows)
    : plan_(plan),
      cancellation_(cancellation),
      values_(plan.tasks.size()),
      sourceRows_(sourceRows) {}

EvaluationFacts Evaluation::run() {
  const auto start = std::chrono::steady_clock::now();
  refuseRecordedTasks();
  runClientTasks(0);
  for (int pass = 1; pass <= plan_.passes; ++pass) {
    runPass(pass);
    runClientTasks(pass);
  }
  completePromises();
  facts_.passes = plan_.passes;
  facts_.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  facts_.peakBytes = peakResidentBytes();
  return facts_;
}

void Evaluation::refuseRecordedTasks() const {
  for (const PlanTask& task : plan_.tasks) {
    if (task.spec->kind == OpKind::Recorded) {
      withStep(*task.spec, task.factory.get(), [&] { refuse(*task.spec); });
    }
  }
}

void Evaluation::runClientTasks(int pass) {
  for (std::size_t i = 0; i < plan_.tasks.size(); ++i) {
    const PlanTask& task = plan_.tasks[i];
    if (task.runsInClient && task.pass == pass) {
      cancellation_.throwIfCancelled();
      values_[i] = runClientTask(task, values_);
    }
  }
}

void Evaluation::runPass(int pass) {
  for (const std::vector<PassSink>& sinks : sinksBySource(pass)) {
    const PlanTask& first = taskOf(sinks.front());
    withStep(*first.spec, first.factory.get(), [&] { runStage(sinks); });
  }
}

std::vector<std::vector<PassSink>> Evaluation::sinksBySource(int pass) const {
  const std::vector<int> sourceOf = sourceOfTasks(plan_);
  std::map<int, std::vector<PassSink>> bySource;
  for (const int task : plan_.aggregatesOf(pass)) {
    bySource[sourceOf[static_cast<std::size_t>(task)]].push_back({task, 0, true});
  }
  for (const Plan::Kept& kept : plan_.keptIn(pass)) {
    bySource[sourceOf[static_cast<std::size_t>(kept.task)]].push_back(
        {kept.task, kept.output, false});
  }
  std::vector<std::vector<PassSink>> groups;
  for (auto& [source, sinks] : bySource) {
    groups.push_back(std::move(sinks));
  }
  return groups;
}

void Evaluation::runStage(const std::vector<PassSink>& sinks) {
  AssembledStage assembled = assembleStage(plan_, sinks, values_);
  placeRows(assembled);
  const Stage& stage = assembled.stage();
  SessionFunctions functions(assembled);
  const std::uint64_t number = nextStage_++;
  std::vector<UnitResult> results;
  std::map<std::size_t, OutputTypes> types;
  for (std::int64_t i = 0; i < stage.source().numPartitions(); ++i) {
    const Unit unit{
        .stage = number, .partition = i, .numPartitions = stage.source().numPartitions()};
    results.push_back(runUnit(stage, unit.toBytes(), assembled.inputs, functions, cancellation_));
    addTypes(types, results.back(), assembled);
    if (const auto& failure = results.back().failure) {
      raiseStageFailure(assembled, failure->step, failure->error,
                        {i, failure->firstRow, failure->lastRow});
    }
  }
  noteRows(stage, results);
  takeResults(sinks, results);
}

/// A value computed at once from gathered ones doesn't tell where its rows stood, and one that came
/// from elsewhere may tell it of another source. If it has as many as the source, they are the
/// source's.
void Evaluation::placeRows(AssembledStage& assembled) const {
  const Datastore& source = assembled.stage().source();
  const auto known = sourceRows_.find(source.fingerprint());
  for (StageInput& input : assembled.inputs) {
    if (input.places && input.places->numPartitions() != source.numPartitions()) {
      input.places.reset();
    }
    const std::int64_t rows = input.column.rows();
    if (!input.places && rows != 1 && known != sourceRows_.end() && known->second.back() == rows) {
      input.places = RowPlaces{known->second, std::nullopt};
    }
  }
}

void Evaluation::noteRows(const Stage& stage, const std::vector<UnitResult>& results) {
  const std::string source = stage.source().fingerprint();
  if (!sourcesSeen_.insert(source).second) {
    return;
  }
  std::vector<std::int64_t> firstRow{0};
  for (const UnitResult& result : results) {
    firstRow.push_back(firstRow.back() + result.rows);
  }
  facts_.rows += firstRow.back();
  sourceRows_[source] = std::move(firstRow);
}

void Evaluation::takeResults(const std::vector<PassSink>& sinks, std::vector<UnitResult>& results) {
  for (std::size_t sink = 0; sink < sinks.size(); ++sink) {
    const auto index = static_cast<std::size_t>(sinks[sink].task);
    const PlanTask& task = taskOf(sinks[sink]);
    withStep(*task.spec, task.factory.get(), [&] {
      if (sinks[sink].isAggregate) {
        values_[index] = mergeAggregate(task, sink, results);
      } else {
        values_[index].resize(task.spec->numOutputs);
        values_[index][sinks[sink].output] = joinKept(sink, results);
      }
    });
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
    const auto index = static_cast<std::size_t>(result.task);
    const PlanTask& task = plan_.tasks[index];
    withStep(*task.spec, task.factory.get(),
             [&] { complete(result.promise, values_[index].at(result.output)); });
  }
}

}  // namespace kv::runtime

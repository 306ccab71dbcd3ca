// Each chunk of the source goes through all steps of segment 0 before the next is read. A step's
// outputs stay in its slot until the last step that reads them has run, so that a long chain holds
// few columns. A value that isn't known to be rows of the stage goes from step to step as it is:
// what it means is up to the operator.
//
// A flow step starts a segment of its own. What it emits is pulled from it and goes through that
// segment, chunk by chunk; of several flow steps with something to emit the last comes first. So
// little waits between them, and a long chain of flow steps needs no recursion.

#include "engine/runUnit.h"

#include <fmt/core.h>

#include <algorithm>
#include <cassert>
#include <exception>
#include <memory>
#include <set>
#include <string_view>
#include <utility>

#include "engine/Unit.h"
#include "kv/errors/PassThrough.h"
#include "source/ReadRetries.h"

namespace kv::runtime {

namespace {

/// One run of a unit: its slots and the runs of its steps.
class UnitRun {
 public:
  UnitRun(const Stage& stage, const StageRows& rows, const Unit& unit, UserFunctions& functions,
          const CancellationToken& cancellation)
      : stage_(stage),
        rows_(rows),
        cancellation_(cancellation),
        runs_(stage.steps().size()),
        slots_(stage.steps().size()),
        bound_(stage.inputs().size()) {
    assert(stage.isAligned());
    result_.partition = unit.partition;
    for (std::size_t i = 0; i < stage.steps().size(); ++i) {
      const Step& step = stage.steps()[i];
      const StepScope scope{i,
                            step.label,
                            step.numOutputs,
                            functions,
                            types_[i],
                            unit.isWithoutRows() ? &unit.knownTypes : nullptr,
                            stage.cutOf(i).isFramed,
                            stage.cutOf(i).frameRows,
                            unit.numPartitions,
                            unit.partition};
      start(step, scope);
    }
  }

  /// Takes rows through all steps: a chunk of each source.
  /// Result: true if more are wanted; false after a failure.
  bool advance(const std::vector<Chunk>& sources) {
    result_.rows += sources.front().rows();
    sources_ = &sources;
    runSegment(0, sources.front());
    drain();
    return !result_.failure && wantsMore();
  }

  /// Notes that all rows have been read: takes what flow steps still hold through the steps that
  /// come after them.
  void endRows() {
    for (const std::size_t step : flowSteps_) {
      for (std::size_t input = 0; input < stage_.steps()[step].inputs.size(); ++input) {
        runs_[step].flow->finishInput(input);
      }
      ready_.insert(step);
      drain();
    }
  }

  /// Notes how many rows were left out.
  void addSkipped(std::int64_t rows) {
    result_.rows += rows;
    result_.skippedRows += rows;
  }

  /// Notes that a step failed; `rows` is empty where none are known.
  void fail(std::size_t step, const std::exception_ptr& thrown, GivenRows rows = {}) {
    const OperatorRun* run = runs_[step].any();
    const GivenRows* ofCall = run != nullptr ? run->rowsAtHand() : nullptr;
    rows = ofCall != nullptr ? *ofCall : rows;
    result_.failure = errors::recordFailure(thrown);
    result_.failure->step = step;
    result_.failure->partition = result_.partition;
    result_.failure->firstRow = rows.first;
    result_.failure->lastRow = rows.last;
  }

  /// Bytes of the rows that steps have kept.
  std::int64_t keptBytes() const {
    std::int64_t bytes = 0;
    for (const std::size_t output : stage_.outputs()) {
      bytes += runs_[output].sink->keptBytes();
    }
    return bytes;
  }

  UnitResult finish() {
    for (const std::size_t output : stage_.outputs()) {
      if (!result_.failure) {
        errors::catchingFailures([&] { result_.sinks.push_back(runs_[output].sink->finish()); },
                                 [&](const std::exception_ptr& thrown) { fail(output, thrown); });
      }
    }
    for (auto& [step, types] : types_) {
      if (types.wasCalled()) {
        result_.types.emplace(step, std::move(types));
      }
    }
    return std::move(result_);
  }

 private:
  /// The run of a step, by the kind of its operator; none for one that reads.
  struct Run {
    std::unique_ptr<StepRun> step{};
    std::unique_ptr<FlowRun> flow{};
    std::unique_ptr<SinkRun> sink{};

    const OperatorRun* any() const {
      return step != nullptr   ? static_cast<const OperatorRun*>(step.get())
             : flow != nullptr ? static_cast<const OperatorRun*>(flow.get())
                               : sink.get();
    }
  };

  void start(const Step& step, const StepScope& scope) {
    Run& run = runs_[scope.step];
    if (const auto* keeper = step.op->as<StepOperator>()) {
      run.step = keeper->start(scope);
    } else if (const auto* flow = step.op->as<FlowOperator>()) {
      run.flow = flow->start(scope, flowInputs(step));
      flowSteps_.push_back(scope.step);
    } else if (const auto* sink = step.op->as<SinkOperator>()) {
      run.sink = sink->start(scope);
    }
  }

  std::vector<FlowInput> flowInputs(const Step& step) const {
    std::vector<FlowInput> inputs;
    for (const StepLink& link : step.inputs) {
      inputs.push_back({stage_.originOf(link)});
      if (isValue(link) && step.op->facts().takesValues) {
        inputs.back().value = &stage_.inputs()[link.index];
        inputs.back().valueNumber = link.index;
      }
    }
    return inputs;
  }

  /// Takes rows through the steps of a segment.
  void runSegment(std::size_t segment, const Chunk& rows) {
    for (const std::size_t step : stage_.segments()[segment]) {
      if (result_.failure) {
        return;
      }
      errors::catchingFailures(
          [&] { process(step, segment, rows); },
          [&](const std::exception_ptr& thrown) { fail(step, thrown, GivenRows::of(rows)); });
    }
  }

  /// Takes what flow steps have to emit through the segments that they start.
  void drain() {
    while (!ready_.empty() && !result_.failure) {
      const std::size_t step = *ready_.rbegin();
      cancellation_.throwIfCancelled();
      std::optional<std::vector<Chunk>> emitted;
      errors::catchingFailures([&] { emitted = runs_[step].flow->next(); },
                               [&](const std::exception_ptr& thrown) { fail(step, thrown); });
      if (emitted) {
        slots_[step] = *std::move(emitted);
        const Chunk rows = slots_[step].front();
        if (stage_.steps()[step].op->facts().rows == RowEffect::Renew) {
          result_.madeRows[step] += rows.rows();
        }
        runSegment(stage_.cutOf(step).segment, rows);
      } else {
        ready_.erase(step);
      }
    }
  }

  void process(std::size_t step, std::size_t segment, const Chunk& rows) {
    const Step& planned = stage_.steps()[step];
    const Run& run = runs_[step];
    std::vector<StepInput> inputs;
    inputs.reserve(planned.inputs.size());
    for (const StepLink& link : planned.inputs) {
      inputs.push_back(stage_.segmentOf(link) == segment ? inputAt(link, rows)
                       : link.isStageInput               ? valueAt(link.index)
                                                         : StepInput{});
    }
    const StepInputs given(planned.label, planned.op->facts().spreads, inputs);
    if (run.step != nullptr) {
      slots_[step] = run.step->process(given);
    } else if (run.flow != nullptr) {
      push(step, segment, given);
    } else if (run.sink != nullptr) {
      run.sink->process(given);
    } else {
      slots_[step].assign(1, (*sources_)[stage_.sourceOf(step)]);
    }
    for (const std::size_t used : stage_.usedUpAfter(step)) {
      slots_[used].clear();
    }
  }

  /// Gives a flow step those of its inputs that are there in a segment.
  void push(std::size_t step, std::size_t segment, const StepInputs& inputs) {
    const Step& planned = stage_.steps()[step];
    for (std::size_t input = 0; input < inputs.size(); ++input) {
      const StepLink& link = planned.inputs[input];
      if (isValue(link) && planned.op->facts().takesValues) {
        inputs.checkValue(input);
      } else if (stage_.segmentOf(link) == segment) {
        runs_[step].flow->push(input, inputs.chunk(input));
      }
    }
    ready_.insert(step);
  }

  /// True if further rows of the source may matter to a step that ends rows.
  bool wantsMore() const {
    std::vector<bool> isWanted(stage_.segments().size(), false);
    for (std::size_t segment = isWanted.size(); segment-- > 0;) {
      isWanted[segment] = std::ranges::any_of(stage_.segments()[segment], [&](std::size_t step) {
        const std::vector<StepLink>& inputs = stage_.steps()[step].inputs;
        const Run& run = runs_[step];
        bool wants = run.sink != nullptr && run.sink->wantsMore();
        for (std::size_t i = 0; i < inputs.size() && run.flow != nullptr; ++i) {
          wants = wants || (isWanted[stage_.cutOf(step).segment] && run.flow->wantsMore(i) &&
                            stage_.segmentOf(inputs[i]) == segment);
        }
        return wants;
      });
    }
    return isWanted[0];
  }

  /// True for an input of the stage that isn't known to be rows of it.
  bool isValue(const StepLink& link) const {
    return link.isStageInput && rows_.placesOf(link.index) == nullptr;
  }

  StepInput inputAt(const StepLink& link, const Chunk& rows) {
    if (link.isStageInput) {
      return boundInput(link.index, rows);
    }
    return {&slots_[link.index].at(link.output), nullptr, 0, stage_.originOf(link)};
  }

  StepInput valueAt(std::size_t number) const {
    const StageInput& input = stage_.inputs()[number];
    return {nullptr, &input, number, input.origin};
  }

  /// An input of the stage: the rows that belong to those of `source`, or the value.
  StepInput boundInput(std::size_t number, const Chunk& source) {
    const StageInput& input = stage_.inputs()[number];
    const RowPlaces* places = rows_.placesOf(number);
    if (places == nullptr) {
      return valueAt(number);
    }
    const std::int64_t rows = source.rows();
    const std::int64_t first = rows > 0 ? source.ordinals.at(0) : 0;
    bound_[number] = places->take(input.rows, partitionOf(source), first, first + rows);
    return {&*bound_[number], nullptr, 0, input.origin};
  }

  /// Any partition will do for no rows.
  std::int64_t partitionOf(const Chunk& source) const {
    return std::min(source.partition, rows_.numPartitions() - 1);
  }

  const Stage& stage_;
  const StageRows& rows_;
  const CancellationToken& cancellation_;
  const std::vector<Chunk>* sources_ = nullptr;  ///< the rows at hand, of each source
  std::map<std::size_t, OutputTypes> types_;     ///< by step
  std::vector<Run> runs_;                        ///< of the steps
  std::vector<std::size_t> flowSteps_;           ///< in order
  std::set<std::size_t> ready_;                  ///< flow steps that may have something to emit
  std::vector<std::vector<Chunk>> slots_;    ///< the outputs of the steps, until they are used up
  std::vector<std::optional<Chunk>> bound_;  ///< rows of the stage's inputs
  UnitResult result_;
};

/// Chunks of the sources without rows, so that results have their types.
std::vector<Chunk> emptyChunks(const Stage& stage, std::int64_t partition) {
  std::vector<Chunk> chunks;
  for (const StageSource& source : stage.sources()) {
    chunks.push_back(source.store->emptyChunk(partition, source.columns));
  }
  if (chunks.empty()) {
    chunks.push_back({.partition = partition});
  }
  return chunks;
}

void readThrough(UnitRun& run, const Stage& stage, const StageRows& rows, const Unit& unit,
                 const ExecutionContext& context) {
  std::unique_ptr<StageReader> reader;
  std::vector<Chunk> chunks;
  if (!unit.isWithoutRows()) {
    reader = rows.openPartition(unit.partition, unit.range, context);
    chunks = reader->next();
  }
  if (chunks.empty()) {
    run.advance(emptyChunks(stage, unit.partition));
  }
  while (!chunks.empty() && run.advance(chunks)) {
    chunks = reader->next();
  }
  run.addSkipped(reader != nullptr ? reader->skippedRows() : 0);
  run.endRows();
}

}  // namespace

UnitResult runUnit(const Stage& stage, const StageRows& rows, std::string_view unitBytes,
                   UserFunctions& functions, const ExecutionContext& context) {
  const ContextScope scope(context);
  const ReadRetries retries(
      stage.sources().empty() ? 0 : stage.sources().front().store->maxReadFailures());
  const RefusalWatch watch;
  const Unit unit = Unit::fromBytes(unitBytes);
  UnitRun run(stage, rows, unit, functions, context.cancellation);
  errors::catchingFailures(
      [&] { readThrough(run, stage, rows, unit, context); },
      [&](const std::exception_ptr& thrown) { run.fail(stage.readStep(), thrown); });
  const std::int64_t keptBytes = run.keptBytes();
  UnitResult result = run.finish();
  if (result.failure) {
    result.refusal = watch.refusal();
    result.keptBytes = keptBytes;
  }
  return result;
}

}  // namespace kv::runtime

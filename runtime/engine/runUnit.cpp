#include "engine/runUnit.h"

#include <fmt/core.h>

#include <algorithm>
#include <exception>
#include <memory>
#include <string>
#include <utility>

#include "engine/Unit.h"
#include "kv/errors/PassThrough.h"

// Each chunk of the source goes through all steps before the next is read. A step's outputs stay in
// its slot until the last step that reads them has run, so that a long chain holds few columns. A
// value that isn't known to be rows of the stage goes from step to step as it is: what it means is
// up to the operator.

namespace kv::runtime {

namespace {

/// One run of a unit: its slots and the runs of its steps.
class UnitRun {
 public:
  UnitRun(const Stage& stage, const StageRows& rows, const Unit& unit, UserFunctions& functions)
      : stage_(stage), rows_(rows), slots_(stage.steps().size()), bound_(stage.inputs().size()) {
    result_.partition = unit.partition;
    for (std::size_t i = 0; i < stage.steps().size(); ++i) {
      const Step& step = stage.steps()[i];
      origins_.push_back(step.describe());
      runs_.push_back(step.op->start({i, step.label, step.numOutputs, functions, types_[i],
                                      unit.isWithoutRows() ? &unit.knownTypes : nullptr}));
    }
  }

  /// Takes one chunk of the source through all steps. False after a failure.
  bool advance(const Chunk& source) {
    result_.rows += source.rows();
    for (std::size_t step = 0; step < stage_.steps().size() && !result_.failure; ++step) {
      errors::catchingFailures(
          [&] { process(step, source); },
          [&](const std::exception_ptr& thrown) { fail(step, thrown, GivenRows::of(source)); });
    }
    return !result_.failure;
  }

  /// Notes that a step failed; `rows` is empty where none are known.
  void fail(std::size_t step, const std::exception_ptr& thrown, GivenRows rows = {}) {
    if (const GivenRows* ofCall = runs_[step]->rowsAtHand()) {
      rows = *ofCall;
    }
    result_.failure = errors::recordFailure(thrown);
    result_.failure->step = step;
    result_.failure->partition = result_.partition;
    result_.failure->firstRow = rows.first;
    result_.failure->lastRow = rows.last;
  }

  UnitResult finish() {
    for (const std::size_t output : stage_.outputs()) {
      if (!result_.failure) {
        errors::catchingFailures([&] { result_.sinks.push_back(runs_[output]->finish()); },
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
  void process(std::size_t step, const Chunk& source) {
    const Step& planned = stage_.steps()[step];
    std::vector<StepInput> inputs;
    inputs.reserve(planned.inputs.size());
    for (const StepLink& link : planned.inputs) {
      inputs.push_back(link.isStageInput ? boundInput(link.index, source)
                                         : StepInput{&slots_[link.index].at(link.output), nullptr,
                                                     0, origins_[link.index]});
    }
    slots_[step] = runs_[step]->process({planned.label, planned.op->spreads(), inputs, source});
    for (const std::size_t used : stage_.usedUpAfter(step)) {
      slots_[used].clear();
    }
  }

  /// An input of the stage: the rows that belong to those of `source`, or the value.
  StepInput boundInput(std::size_t number, const Chunk& source) {
    const StageInput& input = stage_.inputs()[number];
    if (!rows_.areRowsOf(number)) {
      return {nullptr, &input, number, input.origin};
    }
    const std::int64_t rows = source.rows();
    const std::int64_t first = rows > 0 ? source.ordinals.at(0) : 0;
    bound_[number] = input.places->take(input.rows, partitionOf(source), first, first + rows);
    return {&*bound_[number], nullptr, 0, input.origin};
  }

  /// Any partition will do for no rows.
  std::int64_t partitionOf(const Chunk& source) const {
    return std::min(source.partition, rows_.numPartitions() - 1);
  }

  const Stage& stage_;
  const StageRows& rows_;
  std::vector<std::string> origins_;            ///< of the results of steps, for messages
  std::map<std::size_t, OutputTypes> types_;    ///< by step
  std::vector<std::unique_ptr<StepRun>> runs_;  ///< of the steps
  std::vector<std::vector<Chunk>> slots_;    ///< the outputs of the steps, until they are used up
  std::vector<std::optional<Chunk>> bound_;  ///< rows of the stage's inputs
  UnitResult result_;
};

/// A chunk without rows, so that results of a source without rows have their types.
Chunk emptyChunk(const Stage& stage, std::int64_t partition) {
  Chunk chunk;
  chunk.partition = partition;
  if (stage.source() == nullptr) {
    return chunk;
  }
  chunk.names = std::make_shared<const std::vector<std::string>>(stage.columns());
  for (const std::string& name : stage.columns()) {
    const Schema& schema = stage.source()->schema();
    const auto found = std::ranges::find(schema, name, &ColumnInfo::name);
    const Column column = emptyColumn(found->type);
    chunk.columns.push_back(found->isNullable ? column.asNullable() : column);
  }
  return chunk;
}

void readThrough(UnitRun& run, const Stage& stage, const StageRows& rows, const Unit& unit,
                 const ExecutionContext& context) {
  std::unique_ptr<ChunkReader> reader;
  std::optional<Chunk> chunk;
  if (!unit.isWithoutRows()) {
    reader = rows.openPartition(unit.partition, context.cancellation);
    chunk = reader->next();
  }
  if (!chunk) {
    run.advance(emptyChunk(stage, unit.partition));
  }
  while (chunk && run.advance(*chunk)) {
    chunk = reader->next();
  }
}

}  // namespace

UnitResult runUnit(const Stage& stage, const StageRows& rows, std::string_view unitBytes,
                   UserFunctions& functions, const ExecutionContext& context) {
  const Unit unit = Unit::fromBytes(unitBytes);
  UnitRun run(stage, rows, unit, functions);
  errors::catchingFailures(
      [&] { readThrough(run, stage, rows, unit, context); },
      [&](const std::exception_ptr& thrown) { run.fail(stage.readStep(), thrown); });
  return run.finish();
}

}  // namespace kv::runtime

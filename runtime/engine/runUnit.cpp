#include "engine/runUnit.h"

#include <fmt/core.h>

#include <algorithm>
#include <memory>
#include <utility>

#include "engine/Unit.h"
#include "engine/chunkSteps.h"
#include "kv/errors/StepError.h"
#include "kv/runtime/Aggregates.h"
#include "kv/runtime/selectRows.h"
#include "values/columnValues.h"

namespace kv::runtime {
namespace {

/// What a step has made of the rows at hand: a chunk for each output, or a value that isn't known
/// to be rows of the stage.
struct Slot {
  std::vector<Chunk> outputs;
  const StageInput* whole = nullptr;

  bool isWhole() const { return whole != nullptr; }
};

/// One run of a unit: its slots and sinks.
class UnitRun {
 public:
  UnitRun(const Stage& stage, const StageRows& rows, std::int64_t partition,
          std::span<const StageInput> inputs, UserFunctions& functions)
      : stage_(stage),
        rows_(rows),
        inputs_(inputs),
        functions_(functions),
        slots_(stage.steps().size()) {
    result_.partition = partition;
    result_.sinks.resize(stage.outputs().size());
    for (const std::size_t output : stage.outputs()) {
      const OpFunction& function = stage.steps()[output].spec->function;
      states_.push_back(function.aggregate ? std::make_unique<AggregateState>(
                                                 function.aggregate->kind, function.missing)
                                           : nullptr);
    }
  }

  /// Takes one chunk of the source through all steps. False after a failure.
  bool advance(const Chunk& source) {
    result_.rows += source.rows();
    if (source.rows() > 0) {
      result_.chunkRows.push_back(source.rows());
    }
    for (std::size_t step = 0; step + 1 < stage_.steps().size() && !result_.failure; ++step) {
      errors::catchingFailures(
          [&] {
            runStep(step, source);
            dropUsedUp(step);
          },
          [&](const std::exception_ptr& thrown) { fail(step, thrown, GivenRows::of(source)); });
    }
    return !result_.failure;
  }

  /// Notes that a step failed; `rows` is empty where none are known.
  void fail(std::size_t step, const std::exception_ptr& thrown, const GivenRows& rows = {}) {
    result_.failure = errors::recordFailure(thrown);
    result_.failure->step = step;
    result_.failure->partition = result_.partition;
    result_.failure->firstRow = rows.first;
    result_.failure->lastRow = rows.last;
  }

  UnitResult finish() {
    for (std::size_t i = 0; i < states_.size() && !result_.failure; ++i) {
      if (states_[i]) {
        errors::catchingFailures(
            [&] { result_.sinks[i].partial = states_[i]->finish().toBytes(); },
            [&](const std::exception_ptr& thrown) { fail(stage_.outputs()[i], thrown); });
      }
    }
    return std::move(result_);
  }

 private:
  /// A step's rows go when the last step that reads them has run: a long chain holds few columns.
  void dropUsedUp(std::size_t step) {
    for (const std::size_t input : stage_.steps()[step].inputs) {
      if (stage_.lastUse(input) == step) {
        slots_[input] = {};
      }
    }
  }

  void runStep(std::size_t step, const Chunk& source) {
    const OpSpec& spec = *stage_.steps()[step].spec;
    Slot& slot = slots_[step];
    switch (spec.kind) {
      case OpKind::Read:
        slot.outputs = {source};
        break;
      case OpKind::Input:
        bindInput(slot, spec.index - 1, source);
        break;
      case OpKind::Variable:
        slot.outputs = {takeVariables(spec, chunkOf(step, 0))};
        break;
      case OpKind::Filter:
        filter(step, slot);
        break;
      case OpKind::Elementwise:
        slot.outputs = elementwise(step);
        break;
      case OpKind::Select:
        slot.outputs = {slots_[stage_.steps()[step].inputs[0]].outputs.at(spec.index)};
        break;
      case OpKind::Aggregate:
      case OpKind::Collect:
        feedSinks(step);
        break;
      case OpKind::Choose:
        slot.outputs = {spread(step)};
        break;
      case OpKind::Pass:
        slot.outputs = {chunkOf(step, 0)};
        break;
      case OpKind::Client:
      case OpKind::Recorded:
      case OpKind::Outputs:
        throw std::logic_error("a step of this kind doesn't run in a stage");
    }
  }

  void bindInput(Slot& slot, std::size_t number, const Chunk& source) const {
    const StageInput& input = inputs_[number];
    if (!rows_.areRowsOf(number)) {
      slot.whole = &input;
      return;
    }
    const std::int64_t rows = source.rows();
    const std::int64_t first = rows > 0 ? source.ordinals.at(0) : 0;
    slot.outputs = {input.places->take(input.rows, source.partition, first, first + rows)};
  }

  const Slot& inputSlot(std::size_t step, std::size_t input) const {
    return slots_[stage_.steps()[step].inputs.at(input)];
  }

  const Chunk& chunkOf(std::size_t step, std::size_t input) const {
    const Slot& slot = inputSlot(step, input);
    if (slot.isWhole()) {
      refuseValue(step, input);
    }
    return slot.outputs.front();
  }

  const Column& columnOf(std::size_t step, std::size_t input) const {
    const Chunk& chunk = chunkOf(step, input);
    if (chunk.names != nullptr) {
      errors::raiseStep("KALVEX:array:NeedsColumn", {stage_.steps()[step].spec->label});
    }
    return chunk.columns.front();
  }

  /// Where the array that is input `input` of `step` was made, for messages.
  std::string describeInput(std::size_t step, std::size_t input) const {
    const OpSpec& spec = *stage_.steps()[stage_.steps()[step].inputs[input]].spec;
    return spec.kind == OpKind::Input ? inputs_[spec.index - 1].origin : describe(spec);
  }

  /// Refuses a value where rows are needed: it has one row, or those of something else.
  [[noreturn]] void refuseValue(std::size_t step, std::size_t input) const {
    const StageInput& value = *inputSlot(step, input).whole;
    const std::int64_t rows = value.places ? value.places->rows() : value.column.rows();
    const bool spreads = stage_.steps()[step].spec->spreads;
    const bool mayNotSpread = value.places || rows != 1 || !spreads;
    const std::vector<std::size_t>& others = stage_.steps()[step].inputs;
    for (std::size_t other = 0; other < others.size(); ++other) {
      if (mayNotSpread && !inputSlot(step, other).isWhole()) {
        const std::string described =
            fmt::format("{} ({} row{})", describeInput(step, input), rows, rows == 1 ? "" : "s");
        const bool mayHaveOneRow = spreads && !value.places;
        errors::raiseStep("KALVEX:array:RowsDiffer",
                          {described, describeInput(step, other),
                           mayHaveOneRow ? "; a value in memory must have one row" : ""});
      }
    }
    errors::raiseStep("KALVEX:array:NeedsRows", {stage_.steps()[step].spec->label});
  }

  void checkRows(std::size_t step, std::size_t a, std::size_t b) const {
    const RowOrdinals& rowsA = chunkOf(step, a).ordinals;
    const RowOrdinals& rowsB = chunkOf(step, b).ordinals;
    if (!haveSameRows(rowsA, rowsB)) {
      errors::raiseStep("KALVEX:array:RowsDiffer",
                        {describeInput(step, a), describeInput(step, b), ""});
    }
  }

  void filter(std::size_t step, Slot& slot) const {
    const std::size_t count = stage_.steps()[step].inputs.size();
    const Column& keep = columnOf(step, 0);
    const bool isKnown = keep.type() != ElementType::Unknown;
    slot.outputs.clear();
    for (std::size_t input = 1; input < count; ++input) {
      checkRows(step, 0, input);
      const Chunk& chunk = chunkOf(step, input);
      slot.outputs.push_back(isKnown ? selectRows(chunk, keep) : chunk);
    }
  }

  /// The rows that the inputs of a step share; what isn't rows goes with any.
  const Chunk& sharedRows(std::size_t step) const {
    const Chunk* rows = nullptr;
    std::size_t rowsInput = 0;
    for (std::size_t input = 0; input < stage_.steps()[step].inputs.size(); ++input) {
      if (inputSlot(step, input).isWhole()) {
        continue;
      }
      columnOf(step, input);  // refuses a table
      if (rows == nullptr) {
        rows = &chunkOf(step, input);
        rowsInput = input;
      } else {
        checkRows(step, rowsInput, input);
      }
    }
    checkValues(step);
    if (rows == nullptr) {
      errors::raiseStep("KALVEX:array:NeedsRows", {stage_.steps()[step].spec->label});
    }
    return *rows;
  }

  /// The inputs of a function of ours.
  std::vector<Operand> operandsOf(std::size_t step) const {
    std::vector<Operand> operands;
    for (std::size_t input = 0; input < stage_.steps()[step].inputs.size(); ++input) {
      const Slot& slot = inputSlot(step, input);
      operands.push_back(slot.isWhole() ? Operand{slot.whole->column, true}
                                        : Operand{columnOf(step, input)});
    }
    return operands;
  }

  /// The inputs of a user's function: values go to it as they are.
  std::vector<FunctionInput> functionInputsOf(std::size_t step) const {
    std::vector<FunctionInput> inputs;
    for (std::size_t input = 0; input < stage_.steps()[step].inputs.size(); ++input) {
      const Slot& slot = inputSlot(step, input);
      if (slot.isWhole()) {
        inputs.push_back({std::nullopt, static_cast<std::size_t>(slot.whole - inputs_.data())});
      } else {
        inputs.push_back({columnOf(step, input)});
      }
    }
    return inputs;
  }

  bool hasUnknownInput(std::size_t step) const {
    for (std::size_t input = 0; input < stage_.steps()[step].inputs.size(); ++input) {
      const bool isWhole = inputSlot(step, input).isWhole();
      if (!isWhole && columnOf(step, input).type() == ElementType::Unknown) {
        return true;
      }
    }
    return false;
  }

  /// The value that a condition chose, for every row of the other branch.
  Chunk spread(std::size_t step) const {
    checkValues(step);
    const Chunk& rows = chunkOf(step, 1);
    const Column& value = inputSlot(step, 0).whole->column;
    return {rows.partition, rows.ordinals, nullptr, {repeat(value, rows.rows())}};
  }

  /// A value with several rows that aren't known to be those of the stage fits nothing.
  void checkValues(std::size_t step) const {
    const bool spreads = stage_.steps()[step].spec->spreads;
    for (std::size_t input = 0; input < stage_.steps()[step].inputs.size(); ++input) {
      const Slot& slot = inputSlot(step, input);
      const bool isValue = slot.isWhole() && !slot.whole->isOpaque;
      if (isValue && (slot.whole->places || slot.whole->column.rows() != 1 || !spreads)) {
        refuseValue(step, input);
      }
    }
  }

  std::vector<Chunk> elementwise(std::size_t step) {
    const OpSpec& spec = *stage_.steps()[step].spec;
    const Chunk& rows = sharedRows(step);
    std::vector<Column> columns;
    if (hasUnknownInput(step) || (rows.rows() == 0 && spec.function.element == nullptr)) {
      columns.assign(spec.numOutputs,
                     emptyColumn(spec.givesLogical ? ElementType::Logical : ElementType::Unknown));
    } else if (spec.function.element != nullptr) {
      columns.push_back(evaluate(*spec.function.element, operandsOf(step), rows.rows()));
    } else {
      columns = functions_.call(step, rows, functionInputsOf(step), result_.types[step]);
    }
    std::vector<Chunk> chunks;
    for (Column& column : columns) {
      if (column.rows() != rows.rows()) {
        errors::raiseStep("KALVEX:array:WrongRowCount",
                          {spec.label, std::to_string(rows.rows()), std::to_string(column.rows())});
      }
      requireType(spec, column);
      chunks.push_back({rows.partition, rows.ordinals, nullptr, {std::move(column)}});
    }
    return chunks;
  }

  void feedSinks(std::size_t step) {
    for (std::size_t i = 0; i < stage_.outputs().size(); ++i) {
      if (stage_.outputs()[i] == step) {
        feedSink(step, i);
      }
    }
  }

  void feedSink(std::size_t step, std::size_t sink) {
    if (states_[sink]) {
      const Column& column = columnOf(step, 0);
      if (column.type() != ElementType::Unknown) {
        states_[sink]->update(column, chunkOf(step, 0).ordinals);
      }
    } else if (stage_.steps()[step].spec->kind == OpKind::Collect) {
      result_.sinks[sink].chunks.push_back(chunkOf(step, 0));
    } else if (const Chunk& rows = sharedRows(step); rows.rows() > 0) {
      result_.sinks[sink].partials.push_back(
          functions_.call(step, rows, functionInputsOf(step), result_.types[step]));
    } else {
      result_.sinks[sink].noRows = functionInputsOf(step);
    }
  }

  const Stage& stage_;
  const StageRows& rows_;
  std::span<const StageInput> inputs_;
  UserFunctions& functions_;
  std::vector<Slot> slots_;
  std::vector<std::unique_ptr<AggregateState>> states_;
  UnitResult result_;
};

/// A chunk without rows, so that results of a source without rows have their types.
Chunk emptyChunk(const Stage& stage, std::int64_t partition) {
  Chunk chunk;
  chunk.partition = partition;
  if (!stage.readsSource()) {
    return chunk;
  }
  chunk.names = std::make_shared<const std::vector<std::string>>(stage.columns());
  for (const std::string& name : stage.columns()) {
    for (const ColumnInfo& column : stage.source().schema()) {
      if (column.name == name) {
        chunk.columns.push_back(emptyColumn(column.type));
      }
    }
  }
  return chunk;
}

}  // namespace

UnitResult runUnit(const Stage& stage, const StageRows& rows, std::string_view unitBytes,
                   std::span<const StageInput> inputs, UserFunctions& functions,
                   const CancellationToken& cancellation) {
  const Unit unit = Unit::fromBytes(unitBytes);
  UnitRun run(stage, rows, unit.partition, inputs, functions);
  errors::catchingFailures(
      [&] {
        const std::unique_ptr<ChunkReader> reader =
            rows.openPartition(unit.partition, cancellation);
        std::optional<Chunk> chunk = reader->next();
        if (!chunk) {
          run.advance(emptyChunk(stage, unit.partition));
        }
        while (chunk && run.advance(*chunk)) {
          chunk = reader->next();
        }
      },
      [&](const std::exception_ptr& thrown) { run.fail(stage.readStep(), thrown); });
  return run.finish();
}

}  // namespace kv::runtime

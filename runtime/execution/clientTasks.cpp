#include "execution/clientTasks.h"

#include <algorithm>
#include <optional>
#include <string>
#include <utility>

#include "execution/chunkSteps.h"
#include "execution/failures.h"
#include "execution/randomStreams.h"
#include "execution/slicedCalls.h"
#include "kv/host/errors.h"
#include "kv/runtime/selectRows.h"
#include "values/columnValues.h"

namespace kv::runtime {
namespace {

using host::Value;

/// Whose random stream a function of whole values has.
constexpr std::int64_t kFirstPartition = 0;

std::vector<WholeValue> wholes(std::vector<Value> outputs,
                               const std::optional<RowPlaces>& places = std::nullopt) {
  std::vector<WholeValue> values;
  for (Value& output : outputs) {
    values.push_back({std::move(output), places});
  }
  return values;
}

[[noreturn]] void raiseRowsDiffer(const OpSpec& spec, std::int64_t rows, std::int64_t others) {
  host::raise("KALVEX:array:RowsDiffer", {std::to_string(rows), "an input of " + spec.label,
                                          std::to_string(others), "another"});
}

/// The rows that all inputs share; none if they are values without places.
/// Errors: "KALVEX:array:RowsDiffer".
std::optional<RowPlaces> sharedPlaces(const OpSpec& spec, const std::vector<WholeValue>& inputs) {
  const WholeValue* first = nullptr;
  for (const WholeValue& input : inputs) {
    if (!input.places) {
      continue;
    }
    if (first != nullptr && !haveSamePlaces(*first->places, *input.places)) {
      raiseRowsDiffer(spec, first->places->firstRow.back(), input.places->firstRow.back());
    }
    first = first != nullptr ? first : &input;
  }
  return first != nullptr ? first->places : std::nullopt;
}

std::vector<Value> callHandle(const kxArray* factory, kcos::NameRef slot, std::size_t numOutputs,
                              const std::vector<const kxArray*>& inputs) {
  const Value handle = host::getProperty(factory, slot);
  std::vector<const kxArray*> arguments{handle.get()};
  arguments.insert(arguments.end(), inputs.begin(), inputs.end());
  const StreamScope stream(streamForPartition(factory, kFirstPartition));
  std::vector<Value> outputs = host::callMany("feval", static_cast<int>(numOutputs), arguments);
  outputs.resize(numOutputs);
  if (!isBuiltInHandle(handle.get())) {
    std::ranges::transform(outputs, outputs.begin(),
                           [](Value& output) { return asReturned(std::move(output)); });
  }
  return outputs;
}

/// The function of an operation on rows, called on as many at a time as it takes.
std::vector<Value> callOnRows(const PlanTask& task, const std::vector<const kxArray*>& inputs) {
  const Value handle = host::getProperty(task.factory.get(), "FunctionHandle");
  const auto maxRows = static_cast<std::size_t>(maxRowsOf(*task.spec, handle.get()));
  const auto fits = [maxRows](const kxArray* input) { return kxGetM(input) <= maxRows; };
  if (std::ranges::all_of(inputs, fits)) {
    return callHandle(task.factory.get(), "FunctionHandle", task.spec->numOutputs, inputs);
  }
  std::vector<Operand> operands;
  std::int64_t rows = 1;
  for (const kxArray* input : inputs) {
    operands.push_back({toColumn(input), kxIsScalar(input), false});
    rows = operands.back().isScalar ? rows : operands.back().column.rows();
  }
  const StreamScope stream(streamForPartition(task.factory.get(), kFirstPartition));
  std::vector<Value> outputs;
  OutputTypes types;
  const Chunk all{kFirstPartition, RowOrdinals(0, rows), nullptr, {}};
  for (const Column& column : callInSlices(*task.spec, handle.get(), operands, all, types)) {
    outputs.push_back(toValue(column));
  }
  return outputs;
}

/// The results of a function that the operation says has logical ones.
std::vector<Value> checkedTypes(const OpSpec& spec, std::vector<Value> outputs) {
  for (const Value& output : outputs) {
    if (spec.givesLogical) {
      requireType(spec, toColumn(output.get()));
    }
  }
  return outputs;
}

/// A value cut where the rows stood, or as one piece.
/// Errors: "KALVEX:array:RowsDiffer" for a value with more or fewer rows than have places.
std::vector<Chunk> piecesOf(const OpSpec& spec, const WholeValue& whole,
                            const std::optional<RowPlaces>& places) {
  const Chunk chunk = toChunk(whole.value.get());
  if (!places) {
    return {chunk};
  }
  if (chunk.rows() != places->firstRow.back()) {
    raiseRowsDiffer(spec, places->firstRow.back(), chunk.rows());
  }
  return places->cut(chunk);
}

std::vector<WholeValue> oneOf(const WholeValue& input) {
  std::vector<WholeValue> outputs;
  outputs.push_back({matrix::sharedCopy(input.value.get()), input.places});
  return outputs;
}

std::vector<WholeValue> filterWhole(const OpSpec& spec, const std::vector<WholeValue>& inputs) {
  const std::optional<RowPlaces> places = sharedPlaces(spec, inputs);
  const std::vector<Chunk> keep = piecesOf(spec, inputs.at(0), places);
  std::vector<WholeValue> outputs;
  for (std::size_t i = 1; i < inputs.size(); ++i) {
    std::vector<std::vector<Chunk>> kept;
    const std::vector<Chunk> pieces = piecesOf(spec, inputs[i], places);
    for (std::size_t p = 0; p < pieces.size(); ++p) {
      kept.push_back({selectRows(pieces[p], keep[p].columns.front())});
    }
    outputs.push_back(joinRows(kept));
    if (!places) {
      outputs.back().places.reset();
    }
  }
  return outputs;
}

std::vector<WholeValue> runOn(const PlanTask& task, const std::vector<WholeValue>& inputs) {
  const OpSpec& spec = *task.spec;
  const kxArray* factory = task.factory.get();
  std::vector<const kxArray*> values;
  for (const WholeValue& input : inputs) {
    values.push_back(input.value.get());
  }
  switch (spec.kind) {
    case OpKind::Variable: {
      std::vector<Value> taken;
      taken.push_back(toValue(takeVariables(spec, toChunk(values.at(0)))));
      return wholes(std::move(taken), inputs[0].places);
    }
    case OpKind::Filter:
      return filterWhole(spec, inputs);
    case OpKind::Elementwise:
      return wholes(checkedTypes(spec, callOnRows(task, values)), sharedPlaces(spec, inputs));
    case OpKind::Choose:
      return oneOf(inputs.at(isConditionTrue(toColumn(values.at(0))) ? 1 : 2));
    case OpKind::Pass:
      return oneOf(inputs.at(0));
    case OpKind::Aggregate: {
      std::vector<Value> partials = callOnRows(task, values);
      return spec.function.aggregate ? wholes(std::move(partials))
                                     : reducePartials(factory, spec.numOutputs, partials);
    }
    default:
      return wholes(callHandle(factory, "FunctionHandle", spec.numOutputs, values));
  }
}

}  // namespace

std::vector<WholeValue> reducePartials(const kxArray* factory, std::size_t numOutputs,
                                       const std::vector<Value>& partials) {
  std::vector<const kxArray*> inputs;
  for (const Value& partial : partials) {
    inputs.push_back(partial.get());
  }
  return wholes(callHandle(factory, "ReduceHandle", numOutputs, inputs));
}

std::vector<WholeValue> runClientTask(const PlanTask& task, const WholeValues& values) {
  return withStep(*task.spec, task.factory.get(), [&] {
    std::vector<WholeValue> inputs;
    for (const PlanInput& input : task.inputs) {
      inputs.push_back(inputValue(input, values));
    }
    return runOn(task, inputs);
  });
}

}  // namespace kv::runtime

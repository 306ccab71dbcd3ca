// A stage in bytes: a tag with the version of the form, the steps (operator, links, number of
// outputs, label, origin, row space, names of users' functions), the steps whose results it gives,
// and its inputs with their rows. Of users' functions only the names are part of it: in this
// process a step finds its function by its number.

#include <utility>

#include "column/bytes.h"
#include "column/chunkBytes.h"
#include "engine/Stage.h"

namespace kv::runtime {

namespace {

constexpr std::uint32_t kStageTag = 0x3453766B;  // "kvS4"

/// The least bytes of a link, and of an input.
constexpr std::size_t kLinkBytes = 1 + 2 * sizeof(std::uint64_t);
constexpr std::size_t kInputBytes = 2;

void writeLink(const StepLink& link, ByteWriter& bytes) {
  bytes.flag(link.isStageInput);
  bytes.number<std::uint64_t>(link.index);
  bytes.number<std::uint64_t>(link.output);
}

/// A link of the step that comes after `before`.
StepLink readLink(ByteReader& bytes, const std::vector<Step>& before) {
  StepLink link{.isStageInput = bytes.flag()};
  link.index = bytes.number<std::uint64_t>();
  link.output = bytes.number<std::uint64_t>();
  const bool leads = link.isStageInput ||
                     (link.index < before.size() && link.output < before[link.index].numOutputs);
  if (!leads) {
    bytes.refuse();
  }
  return link;
}

void writeStep(const Step& step, ByteWriter& bytes) {
  writeOperator(*step.op, bytes);
  bytes.number<std::uint64_t>(step.inputs.size());
  for (const StepLink& link : step.inputs) {
    writeLink(link, bytes);
  }
  bytes.number<std::uint64_t>(step.numOutputs);
  bytes.text(step.label);
  bytes.text(step.origin);
  bytes.text(step.rowSpace);
  bytes.texts(step.functions);
}

Step stepFrom(ByteReader& bytes, const std::vector<Step>& before) {
  Step step{readOperator(bytes)};
  for (std::size_t left = bytes.count(kLinkBytes); left > 0; --left) {
    step.inputs.push_back(readLink(bytes, before));
  }
  step.numOutputs = bytes.number<std::uint64_t>();
  step.label = bytes.text();
  step.origin = bytes.text();
  step.rowSpace = bytes.text();
  step.functions = bytes.texts();
  const bool lacksOutputs =
      step.op->facts().passesInputs ? step.numOutputs != step.inputs.size() : step.numOutputs == 0;
  if (isFlow(*step.op) && (step.inputs.empty() || lacksOutputs)) {
    bytes.refuse();
  }
  return step;
}

void writeNumbers(const std::vector<std::int64_t>& numbers, ByteWriter& bytes) {
  bytes.number<std::uint64_t>(numbers.size());
  for (const std::int64_t number : numbers) {
    bytes.number(number);
  }
}

std::vector<std::int64_t> readNumbers(ByteReader& bytes) {
  std::vector<std::int64_t> numbers(bytes.count(sizeof(std::int64_t)));
  for (std::int64_t& number : numbers) {
    number = bytes.number<std::int64_t>();
  }
  return numbers;
}

void writePlaces(const RowPlaces& places, ByteWriter& bytes) {
  writeNumbers(places.firstRow, bytes);
  bytes.flag(places.ordinals.has_value());
  if (places.ordinals) {
    writeColumn(*places.ordinals, bytes);
  }
  bytes.text(places.cut->source);
  writeNumbers(places.cut->partitionRows, bytes);
  bytes.text(places.origin);
  bytes.flag(places.isUntyped);
  bytes.number(places.frameRows);
}

/// The places of a value with that many rows.
RowPlaces readPlaces(std::int64_t rows, ByteReader& bytes, arrow::MemoryPool* pool) {
  RowPlaces places{readNumbers(bytes)};
  if (bytes.flag()) {
    places.ordinals = readColumn(bytes, pool);
  }
  RowCut cut{bytes.text()};
  cut.partitionRows = readNumbers(bytes);
  places.origin = bytes.text();
  places.isUntyped = bytes.flag();
  places.frameRows = bytes.number<std::int64_t>();
  const bool isColumn = !places.ordinals || places.ordinals->type() == ElementType::Int64;
  places.cut = std::make_shared<const RowCut>(std::move(cut));
  if (!isColumn || places.frameRows < 0 || !places.fit(rows)) {
    bytes.refuse();
  }
  return places;
}

void writeInput(const StageInput& input, ByteWriter& bytes) {
  writeChunk(input.rows, bytes);
  bytes.flag(input.places != nullptr);
  if (input.places != nullptr) {
    writePlaces(*input.places, bytes);
  }
  bytes.text(input.origin);
  bytes.flag(input.isOpaque);
}

StageInput readInput(ByteReader& bytes, arrow::MemoryPool* pool) {
  StageInput input{readChunk(bytes, pool)};
  if (bytes.flag()) {
    input.places = std::make_shared<const RowPlaces>(readPlaces(input.rows.rows(), bytes, pool));
  }
  input.origin = bytes.text();
  input.isOpaque = bytes.flag();
  const bool hasColumns = !input.rows.columns.empty() || input.rows.names != nullptr;
  if (input.isOpaque == hasColumns) {
    bytes.refuse();
  }
  return input;
}

}  // namespace

std::string Stage::toBytes() const {
  ByteWriter bytes;
  bytes.number(kStageTag);
  bytes.number<std::uint64_t>(steps_.size());
  for (const Step& step : steps_) {
    writeStep(step, bytes);
  }
  bytes.number<std::uint64_t>(outputs_.size());
  for (const std::size_t output : outputs_) {
    bytes.number<std::uint64_t>(output);
  }
  bytes.number<std::uint64_t>(inputs_.size());
  for (const StageInput& input : inputs_) {
    writeInput(input, bytes);
  }
  return bytes.take();
}

Stage Stage::fromBytes(std::string_view content, arrow::MemoryPool* pool) {
  ByteReader bytes(content, "a stage");
  if (bytes.number<std::uint32_t>() != kStageTag) {
    bytes.refuse();
  }
  std::vector<Step> steps;
  for (std::size_t left = bytes.count(sizeof(std::uint64_t)); left > 0; --left) {
    steps.push_back(stepFrom(bytes, steps));
  }
  std::vector<std::size_t> outputs;
  for (std::size_t left = bytes.count(sizeof(std::uint64_t)); left > 0; --left) {
    outputs.push_back(bytes.below(steps.size()));
    if (steps[outputs.back()].op->as<SinkOperator>() == nullptr) {
      bytes.refuse();
    }
  }
  std::vector<StageInput> inputs;
  for (std::size_t left = bytes.count(kInputBytes); left > 0; --left) {
    inputs.push_back(readInput(bytes, pool));
  }
  for (const Step& step : steps) {
    for (const StepLink& link : step.inputs) {
      if (link.isStageInput && link.index >= inputs.size()) {
        bytes.refuse();
      }
    }
  }
  bytes.finish();
  Stage stage(std::move(steps), std::move(outputs), std::move(inputs));
  if (!stage.isAligned()) {
    bytes.refuse();
  }
  return stage;
}

}  // namespace kv::runtime

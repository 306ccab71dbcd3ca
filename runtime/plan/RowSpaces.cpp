// Rows go together if they are those of one source, changed in the same way. What changed them is
// known before anything runs: a filter by its condition, and the condition by the operations that
// made it. So each value gets a hash of its operation, with its options, and of the hashes of its
// inputs; and rows get one of their source and of the conditions that they went through. A filter
// that is recorded twice has the same hash. Users' functions are the same only if they are the same
// object, and what draws random numbers is the same only as itself.
//
// Of a value that was computed in an earlier evaluation it isn't known what made it. What depends
// on it is uncertain: it isn't refused here, and the run compares the numbers of the rows. The run
// always does, so that two hashes that are equal by chance can't combine other rows.

#include "plan/RowSpaces.h"

#include <fmt/core.h>

#include <algorithm>
#include <cassert>
#include <cstdint>
#include <memory>
#include <utility>

#include "column/bytes.h"
#include "kv/errors/StepError.h"
#include "operator/operators.h"

namespace kv::runtime {

namespace {

/// A hash of a kind of thing and of what it was made from.
class Mix {
 public:
  explicit Mix(std::string_view kind) { bytes_.add(kind); }

  Mix& add(const Provenance& part) {
    bytes_.add(part.hash);
    isCertain_ = isCertain_ && part.isCertain;
    return *this;
  }
  Mix& add(const Hash128& part) {
    bytes_.add(part);
    return *this;
  }
  Mix& add(std::string_view text) {
    bytes_.add(text);
    return *this;
  }
  Mix& add(std::int64_t number) {
    bytes_.add(number);
    return *this;
  }
  Mix& setUncertain() {
    isCertain_ = false;
    return *this;
  }

  Provenance take() const { return {bytes_.hash(), isCertain_}; }

 private:
  Fingerprint bytes_;
  bool isCertain_ = true;
};

Provenance ofSource(const std::string& identity) { return Mix("source").add(identity).take(); }

/// True if rows are certain to be others.
bool areOthers(const RowSpace& a, const RowSpace& b) {
  const bool areOfOthers = a.source != Hash128{} && b.source != Hash128{} && a.source != b.source;
  return areOfOthers || (a.rows.hash != b.rows.hash && a.rows.isCertain && b.rows.isCertain);
}

}  // namespace

RowSpaces::RowSpaces(const Plan& plan) : plan_(plan) {
  values_.reserve(plan.tasks.size());
  spaces_.reserve(plan.tasks.size());
  for (int task = 0; task < static_cast<int>(plan.tasks.size()); ++task) {
    add(task);
  }
}

void RowSpaces::add(int index) {
  const PlanTask& task = plan_.task(index);
  values_.push_back(valuesOf(index));
  spaces_.push_back(spaceOf(index));
  const std::vector<const PlanInput*> inputs = flowingInputs(index);
  const bool combinesRows = task.spec->op == nullptr || task.spec->op->facts().combinesRows;
  if (task.runsInClient || task.spec->isChoice || inputs.size() < 2 || !combinesRows) {
    return;
  }
  const PlanInput* surest = surestOf(inputs);
  const RowSpace space = spaceOf(*surest);
  const auto other = std::ranges::find_if(
      inputs, [&](const PlanInput* input) { return areOthers(space, spaceOf(*input)); });
  if (other != inputs.end()) {
    conflicts_.push_back({index, *surest, **other});
  }
}

void RowSpaces::refuse(const RowConflict& conflict) const {
  const RowSpace space = spaceOf(conflict.input);
  const RowSpace other = spaceOf(conflict.other);
  const bool areOfOthers = space.source != other.source;
  if (areOfOthers && space.store != nullptr && other.store != nullptr) {
    errors::raiseStep("KALVEX:array:DifferentSources",
                      {space.store->displayName(), other.store->displayName()});
  }
  errors::raiseStep("KALVEX:array:RowsDiffer", {originOf(conflict.input, areOfOthers),
                                                originOf(conflict.other, areOfOthers), ""});
}

std::string RowSpaces::nameOf(int index) const {
  assert(plan_.task(index).makesRows);
  return Fingerprint().add("groups").add(keysOf(index).hash).digits();
}

/// Of the keys of a task that makes rows: their values and rows.
Provenance RowSpaces::keysOf(int index) const {
  const PlanTask& task = plan_.task(index);
  const std::vector<const PlanInput*> inputs = flowingInputs(index);
  return Mix("keys")
      .add(valueOf(task.inputs[0]))
      .add(spaceOf(*surestOf(inputs)).rows)
      .add(task.spec->op->facts().madePartitions)
      .take();
}

Provenance RowSpaces::valueOf(const PlanInput& input) const {
  if (input.task >= 0) {
    return values_[static_cast<std::size_t>(input.task)].at(input.output);
  }
  return input.constant
             ? Provenance{*input.constant}
             : Mix("value").add(static_cast<std::int64_t>(input.value)).setUncertain().take();
}

/// The values of each output of a task.
std::vector<Provenance> RowSpaces::valuesOf(int index) const {
  const PlanTask& task = plan_.task(index);
  const OpSpec& spec = *task.spec;
  std::vector<Provenance> outputs;
  if (spec.op != nullptr && spec.op->facts().passesInputs) {
    for (const PlanInput& input : task.inputs) {
      outputs.push_back(valueOf(input));
    }
    return outputs;
  }
  Mix made("task");
  if (const auto source = spec.source()) {
    made.add(ofSource(source->fingerprint()));
  } else if (spec.callsUser && task.functions) {
    made.add(*task.functions);
  } else if (spec.op != nullptr && !spec.callsUser) {
    ByteWriter options;
    writeOperator(*spec.op, options);
    made.add(options.take());
  } else {
    made.add(static_cast<std::int64_t>(index));
  }
  for (const PlanInput& input : task.inputs) {
    made.add(valueOf(input));
  }
  const Provenance whole = made.take();
  if (task.makesRows && spec.op->facts().madePartitions == 0) {
    outputs.push_back(Mix("keys of groups").add(keysOf(index)).take());
  }
  for (std::size_t output = outputs.size(); output < spec.numOutputs; ++output) {
    const auto number = static_cast<std::int64_t>(output);
    outputs.push_back(output == 0 ? whole : Mix("output").add(whole).add(number).take());
  }
  return outputs;
}

/// Of a value whose rows flow: all rows of its source, or some that only the run can compare.
RowSpace RowSpaces::spaceOf(const PlanInput& input) const {
  if (input.task >= 0) {
    return spaces_[static_cast<std::size_t>(input.task)];
  }
  assert(input.places != nullptr);
  const Provenance source = ofSource(input.places->cut->source);
  RowSpace space{.rows = source, .source = source.hash};
  if (input.places->ordinals) {
    space.rows = Mix("places").add(static_cast<std::int64_t>(input.value)).setUncertain().take();
  }
  return space;
}

RowSpace RowSpaces::spaceOf(int index) const {
  const PlanTask& task = plan_.task(index);
  const OpSpec& spec = *task.spec;
  if (const auto source = spec.source()) {
    const Provenance rows = ofSource(source->rowSpace());
    return {.rows = rows, .source = rows.hash, .store = source.get()};
  }
  const std::vector<const PlanInput*> inputs = flowingInputs(index);
  if (inputs.empty()) {
    return {};
  }
  if (task.makesRows) {
    const Provenance rows = ofSource(nameOf(index));
    return keysOf(index).isCertain ? RowSpace{.rows = rows, .source = rows.hash}
                                   : RowSpace{.rows = {rows.hash, false}};
  }
  if (renewsRows(task)) {
    const Provenance rows = ofSource(task.rowSpace);
    return {.rows = rows, .source = rows.hash};
  }
  RowSpace space = spaceOf(*surestOf(inputs));
  const bool areSame = std::ranges::all_of(
      inputs, [&](const PlanInput* input) { return spaceOf(*input).rows.hash == space.rows.hash; });
  if (spec.isChoice && !areSame) {
    return {.rows = Mix("choice").add(static_cast<std::int64_t>(index)).setUncertain().take()};
  }
  if (spec.op != nullptr && spec.op->facts().rows == RowEffect::Filter) {
    space.rows = Mix("filter").add(space.rows).add(valueOf(task.inputs[0])).take();
  }
  return space;
}

/// The inputs of a task whose rows are those of its result; of a choice, its branches.
std::vector<const PlanInput*> RowSpaces::flowingInputs(int index) const {
  const PlanTask& task = plan_.task(index);
  std::vector<const PlanInput*> inputs;
  for (const PlanInput& input : task.inputs) {
    const bool isCondition = task.spec->isChoice && &input == task.inputs.data();
    if (!isCondition && plan_.flows(input)) {
      inputs.push_back(&input);
    }
  }
  return inputs;
}

/// The first input whose rows are certain; the first of all if those of none are.
const PlanInput* RowSpaces::surestOf(const std::vector<const PlanInput*>& inputs) const {
  assert(!inputs.empty());
  const auto sure = std::ranges::find_if(
      inputs, [&](const PlanInput* input) { return spaceOf(*input).rows.isCertain; });
  return sure != inputs.end() ? *sure : inputs.front();
}

/// What made the rows of an input: the operation before those that pass on their inputs' rows.
/// Of a value in memory also how many rows it has, if `withRows` is set.
std::string RowSpaces::originOf(const PlanInput& input, bool withRows) const {
  const PlanInput* made = &input;
  while (made->task >= 0) {
    const PlanTask& task = plan_.task(made->task);
    if (task.spec->op == nullptr || !task.spec->op->facts().passesInputs) {
      return describe(*task.spec);
    }
    made = &task.inputs.at(made->output);
  }
  const std::int64_t rows = made->places->rows();
  if (!withRows) {
    return made->places->origin;
  }
  return fmt::format("{} ({} row{})", made->places->origin, rows, rows == 1 ? "" : "s");
}

}  // namespace kv::runtime

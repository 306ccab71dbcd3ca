#include "engine/Stage.h"

#include <fmt/core.h>

#include <algorithm>
#include <cassert>
#include <set>
#include <utility>

#include "kv/errors/StepError.h"

namespace kv::runtime {

namespace {

[[maybe_unused]] bool comeAfterTheirInputs(const std::vector<Step>& steps) {
  std::size_t number = 0;
  return std::ranges::all_of(steps, [&number](const Step& step) {
    const std::size_t own = number++;
    return std::ranges::all_of(
        step.inputs, [own](const StepLink& link) { return link.isStageInput || link.index < own; });
  });
}

}  // namespace

std::string Step::describe() const {
  return origin.empty() ? label : fmt::format("{} at {}", label, origin);
}

Stage::Stage(std::vector<Step> steps, std::vector<std::size_t> outputs,
             std::vector<StageInput> inputs)
    : steps_(std::move(steps)), outputs_(std::move(outputs)), inputs_(std::move(inputs)) {
  assert(comeAfterTheirInputs(steps_));
  assert(std::ranges::all_of(outputs_, [this](std::size_t step) {
    return steps_[step].op->as<SinkOperator>() != nullptr;
  }));
  findSegments();
  findOrigins();
  findLastUses();
  findSources();
}

bool Stage::callsUser() const {
  return std::ranges::any_of(steps_, [](const Step& step) { return step.op->facts().callsUser; });
}

const std::string& Stage::originOf(const StepLink& link) const {
  const bool isPassed = !link.isStageInput && !passed_[link.index].empty();
  const StepLink& made = isPassed ? passed_[link.index][link.output] : link;
  return made.isStageInput ? inputs_[made.index].origin : origins_[made.index];
}

void Stage::findSegments() {
  InputPlaces places;
  for (const StageInput& input : inputs_) {
    places.push_back(input.places.get());
  }
  CutFinder finder(std::move(places));
  std::size_t numInputs = inputs_.size();  // steps may name more, whose values aren't there yet
  for (const Step& step : steps_) {
    isAligned_ = isAligned_ && (isFlow(*step.op) || finder.isAligned(step));
    cuts_.push_back(finder.add(step));
    for (const StepLink& link : step.inputs) {
      numInputs = link.isStageInput ? std::max(numInputs, link.index + 1) : numInputs;
    }
  }
  for (std::size_t input = 0; input < numInputs; ++input) {
    inputCuts_.push_back(finder.cutOf({.isStageInput = true, .index = input}));
  }
  segments_.resize(1);
  for (std::size_t step = 0; step < steps_.size(); ++step) {
    const bool startsSegment = isFlow(*steps_[step].op);
    segments_.resize(std::max(segments_.size(), cuts_[step].segment + 1));
    std::set<std::size_t> runsIn;
    for (const StepLink& link : steps_[step].inputs) {
      if (startsSegment) {
        runsIn.insert(segmentOf(link));
      }
    }
    if (!startsSegment) {
      runsIn.insert(cuts_[step].segment);
    }
    for (const std::size_t segment : runsIn) {
      segments_[segment].push_back(step);
    }
  }
}

void Stage::findOrigins() {
  for (const Step& step : steps_) {
    origins_.push_back(step.describe());
    passed_.emplace_back();
    for (const StepLink& link : step.inputs) {
      if (step.op->facts().passesInputs) {
        const bool isPassed = !link.isStageInput && !passed_[link.index].empty();
        passed_.back().push_back(isPassed ? passed_[link.index][link.output] : link);
      }
    }
  }
}

void Stage::findLastUses() {
  std::vector<std::size_t> lastUse(steps_.size());
  for (std::size_t step = 0; step < steps_.size(); ++step) {
    lastUse[step] = step;
    for (const StepLink& link : steps_[step].inputs) {
      if (!link.isStageInput) {
        lastUse[link.index] = step;
      }
    }
  }
  usedUp_.resize(steps_.size());
  for (std::size_t step = 0; step < steps_.size(); ++step) {
    usedUp_[lastUse[step]].push_back(step);
  }
}

void Stage::findSources() {
  std::vector<ColumnNeeds> needs;
  for (std::size_t step = 0; step < steps_.size(); ++step) {
    const auto* read = steps_[step].op->as<ReadOperator>();
    if (read == nullptr) {
      continue;
    }
    const std::shared_ptr<const Datastore> source = read->source();
    const auto known = std::ranges::find(
        sources_, source->fingerprint(),
        [](const StageSource& each) -> const std::string& { return each.store->fingerprint(); });
    const auto number = static_cast<std::size_t>(known - sources_.begin());
    if (known == sources_.end()) {
      sources_.push_back({source});
      needs.emplace_back();
    }
    const Datastore& first = *sources_.front().store;
    if (source->rowSpace() != first.rowSpace()) {
      errors::raiseStep("KALVEX:array:DifferentSources",
                        {first.displayName(), source->displayName()});
    }
    sourceOf_[step] = number;
    const std::vector<std::string> columns = read->columns();
    needs[number].names.insert(columns.begin(), columns.end());
  }
  for (std::size_t i = 0; i < sources_.size(); ++i) {
    sources_[i].columns = needs[i].columnsOf(sources_[i].store->schema());
  }
}

}  // namespace kv::runtime

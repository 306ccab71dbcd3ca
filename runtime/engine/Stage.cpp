#include "engine/Stage.h"

#include <fmt/core.h>

#include <algorithm>
#include <set>
#include <utility>

#include "kv/errors/StepError.h"

namespace kv::runtime {

namespace {

bool hasAll(const Schema& schema, const std::set<std::string>& names) {
  return std::ranges::all_of(names, [&](const std::string& name) {
    return std::ranges::find(schema, name, &ColumnInfo::name) != schema.end();
  });
}

}  // namespace

std::string Step::describe() const {
  return origin.empty() ? label : fmt::format("{} at {}", label, origin);
}

std::vector<ColumnNeeds> columnNeeds(const std::vector<Step>& steps) {
  std::vector<ColumnNeeds> asked(steps.size());
  std::vector<std::vector<ColumnNeeds>> ofPassed(steps.size());  // by output
  for (std::size_t i = steps.size(); i-- > 0;) {
    const Step& step = steps[i];
    ofPassed[i].resize(step.op->passesInputs() ? step.inputs.size() : 0);
    for (std::size_t input = 0; input < step.inputs.size(); ++input) {
      const StepLink& link = step.inputs[input];
      if (!link.isStageInput) {
        const ColumnNeeds& later = ofPassed[i].empty() ? asked[i] : ofPassed[i][input];
        const ColumnNeeds needs = step.op->needsOf(input, later);
        asked[link.index].add(needs);
        if (steps[link.index].op->passesInputs()) {
          ofPassed[link.index].resize(steps[link.index].inputs.size());
          ofPassed[link.index].at(link.output).add(needs);
        }
      }
    }
  }
  return asked;
}

Stage::Stage(std::vector<Step> steps, std::vector<std::size_t> outputs,
             std::vector<StageInput> inputs)
    : steps_(std::move(steps)), outputs_(std::move(outputs)), inputs_(std::move(inputs)) {
  findSegments();
  findOrigins();
  findLastUses();
  findSource();
  findColumns();
}

bool Stage::callsUser() const {
  return std::ranges::any_of(steps_, [](const Step& step) { return step.op->callsUser(); });
}

const std::string& Stage::originOf(const StepLink& link) const {
  const bool isPassed = !link.isStageInput && !passed_[link.index].empty();
  const StepLink& made = isPassed ? passed_[link.index][link.output] : link;
  return made.isStageInput ? inputs_[made.index].origin : origins_[made.index];
}

void Stage::findSegments() {
  CutFinder finder(inputs_);
  segments_.resize(1);
  for (std::size_t step = 0; step < steps_.size(); ++step) {
    const bool isFlow = steps_[step].op->isFlow();
    isAligned_ = isAligned_ && (isFlow || finder.isAligned(steps_[step]));
    cuts_.push_back(finder.add(steps_[step]));
    segments_.resize(std::max(segments_.size(), cuts_.back().segment + 1));
    std::set<std::size_t> runsIn;
    for (const StepLink& link : steps_[step].inputs) {
      if (isFlow) {
        runsIn.insert(segmentOf(link));
      }
    }
    if (!isFlow) {
      runsIn.insert(cuts_.back().segment);
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
      if (step.op->passesInputs()) {
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

void Stage::findSource() {
  for (std::size_t step = 0; step < steps_.size(); ++step) {
    const std::shared_ptr<const Datastore> source = steps_[step].op->source();
    if (source != nullptr && source_ == nullptr) {
      source_ = source;
      readStep_ = step;
    } else if (source != nullptr && source->fingerprint() != source_->fingerprint()) {
      errors::raiseStep("KALVEX:array:DifferentSources",
                        {source_->displayName(), source->displayName()});
    }
  }
}

void Stage::findColumns() {
  if (source_ == nullptr) {
    return;
  }
  const std::vector<ColumnNeeds> asked = columnNeeds(steps_);
  ColumnNeeds ofSource;
  for (std::size_t i = 0; i < steps_.size(); ++i) {
    if (steps_[i].op->source() != nullptr) {
      ofSource.add(asked[i]);
    }
  }
  // The step that needs a column that isn't there names all that are.
  if (!hasAll(source_->schema(), ofSource.names)) {
    ofSource.all = true;
  }
  columns_ = ofSource.columnsOf(source_->schema());
}

}  // namespace kv::runtime

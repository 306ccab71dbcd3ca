#include "engine/Stage.h"
#include "kv/errors/StepError.h"

#include <fmt/core.h>

#include <algorithm>
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
  for (std::size_t i = steps.size(); i-- > 0;) {
    for (std::size_t input = 0; input < steps[i].inputs.size(); ++input) {
      const StepLink& link = steps[i].inputs[input];
      if (!link.isStageInput) {
        asked[link.index].add(steps[i].op->needsOf(input, asked[i]));
      }
    }
  }
  return asked;
}

Stage::Stage(std::vector<Step> steps, std::vector<std::size_t> outputs)
    : steps_(std::move(steps)), outputs_(std::move(outputs)) {
  findLastUses();
  findSource();
  findColumns();
}

bool Stage::callsUser() const {
  return std::ranges::any_of(steps_, [](const Step& step) { return step.op->callsUser(); });
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

#include "engine/Stage.h"
#include "kv/errors/StepError.h"

#include <algorithm>
#include <utility>

namespace kv::runtime {
namespace {

/// What a step asks of the table that it reads, given what is asked of the step.
ColumnNeeds needsOfInput(const OpSpec& spec, const ColumnNeeds& asked) {
  switch (spec.kind) {
    case OpKind::Variable:
      return {false, {spec.variables.begin(), spec.variables.end()}};
    case OpKind::Filter:
    case OpKind::Select:
    case OpKind::Pass:
      return asked;
    case OpKind::Choose:
      return {};
    default:
      return {true, {}};
  }
}

bool hasAll(const Schema& schema, const std::set<std::string>& names) {
  return std::ranges::all_of(names, [&](const std::string& name) {
    return std::ranges::find(schema, name, &ColumnInfo::name) != schema.end();
  });
}

}  // namespace

void ColumnNeeds::add(const ColumnNeeds& other) {
  all = all || other.all;
  names.insert(other.names.begin(), other.names.end());
}

std::vector<std::string> ColumnNeeds::columnsOf(const Schema& schema) const {
  std::vector<std::string> columns;
  for (const ColumnInfo& column : schema) {
    if (all || names.contains(column.name)) {
      columns.push_back(column.name);
    }
  }
  return columns;
}

std::vector<ColumnNeeds> columnNeeds(const std::vector<StageStep>& steps) {
  std::vector<ColumnNeeds> asked(steps.size());
  for (std::size_t i = steps.size(); i-- > 0;) {
    for (const std::size_t input : steps[i].inputs) {
      asked[input].add(needsOfInput(*steps[i].spec, asked[i]));
    }
  }
  return asked;
}

Stage::Stage(std::vector<StageStep> steps) : steps_(std::move(steps)) {
  findLastUses();
  findSource();
  findColumns();
}

const Datastore& Stage::source() const {
  if (source_ == nullptr) {
    errors::raiseStep("KALVEX:array:NeedsRows", {"a pass"});
  }
  return *source_;
}

void Stage::findLastUses() {
  for (std::size_t step = 0; step < steps_.size(); ++step) {
    lastUse_.push_back(step);
    for (const std::size_t input : steps_[step].inputs) {
      lastUse_[input] = step;
    }
  }
}

void Stage::findSource() {
  for (std::size_t step = 0; step < steps_.size(); ++step) {
    const std::shared_ptr<const Datastore>& source = steps_[step].spec->source;
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
    if (steps_[i].spec->kind == OpKind::Read) {
      ofSource.add(asked[i]);
    }
  }
  // The step that asks for a column that isn't there names all that are.
  if (!hasAll(source_->schema(), ofSource.names)) {
    ofSource.all = true;
  }
  columns_ = ofSource.columnsOf(source_->schema());
}

}  // namespace kv::runtime

#include "execution/Stage.h"

#include <algorithm>
#include <utility>

#include "kv/host/errors.h"

namespace kv::runtime {
namespace {

/// What a step asks of the table that it reads, given what is asked of the step.
ColumnNeeds needsOfInput(const OpSpec& spec, const ColumnNeeds& asked) {
  switch (spec.kind) {
    case OpKind::Variable:
      return {false, {spec.variables.begin(), spec.variables.end()}};
    case OpKind::Filter:
    case OpKind::Select:
      return asked;
    default:
      return {true, {}};
  }
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
  findSource();
  findColumns();
}

void Stage::findSource() {
  for (const StageStep& step : steps_) {
    const std::shared_ptr<const Datastore>& source = step.spec->source;
    if (source != nullptr && source_ == nullptr) {
      source_ = source;
    } else if (source != nullptr && source->fingerprint() != source_->fingerprint()) {
      host::raise("KALVEX:array:DifferentSources", {source_->displayName(), source->displayName()});
    }
  }
}

void Stage::findColumns() {
  const std::vector<ColumnNeeds> asked = columnNeeds(steps_);
  ColumnNeeds ofSource;
  for (std::size_t i = 0; i < steps_.size(); ++i) {
    if (steps_[i].spec->kind == OpKind::Read) {
      ofSource.add(asked[i]);
    }
  }
  columns_ = ofSource.columnsOf(source_->schema());
}

Chunk StageInput::rowsOf(std::int64_t partition, std::int64_t first, std::int64_t last) const {
  const auto at = static_cast<std::size_t>(partition);
  const std::int64_t begin = partitioned->firstRow[at];
  const std::int64_t rows = partitioned->firstRow[at + 1] - begin;
  Chunk chunk;
  chunk.partition = partition;
  if (!partitioned->ordinals) {
    const std::int64_t from = std::min(first, rows);
    const std::int64_t count = std::min(last, rows) - from;
    chunk.ordinals = RowOrdinals(from, count);
    chunk.columns.push_back(column.slice(begin + from, count));
    return chunk;
  }
  const std::span<const std::int64_t> all = partitioned->ordinals->values<std::int64_t>();
  const auto from = std::lower_bound(all.begin() + begin, all.begin() + begin + rows, first);
  const auto to = std::lower_bound(from, all.begin() + begin + rows, last);
  chunk.ordinals = RowOrdinals(std::make_shared<const std::vector<std::int64_t>>(from, to));
  chunk.columns.push_back(column.slice(from - all.begin(), to - from));
  return chunk;
}

}  // namespace kv::runtime

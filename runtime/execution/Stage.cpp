#include "execution/Stage.h"

#include <algorithm>
#include <set>
#include <utility>

#include "kv/host/errors.h"

namespace kv::runtime {
namespace {

/// Names of a table's columns that somebody asks for; all of them once `all` is set.
struct ColumnNeeds {
  bool all = false;
  std::set<std::string> names;

  void add(const ColumnNeeds& other) {
    all = all || other.all;
    names.insert(other.names.begin(), other.names.end());
  }
};

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
  std::vector<ColumnNeeds> asked(steps_.size());
  ColumnNeeds ofSource;
  for (std::size_t i = steps_.size(); i-- > 0;) {
    if (steps_[i].spec->kind == OpKind::Read) {
      ofSource.add(asked[i]);
    }
    for (const std::size_t input : steps_[i].inputs) {
      asked[input].add(needsOfInput(*steps_[i].spec, asked[i]));
    }
  }
  for (const ColumnInfo& column : source_->schema()) {
    if (ofSource.all || ofSource.names.contains(column.name)) {
      columns_.push_back(column.name);
    }
  }
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

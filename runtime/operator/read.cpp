#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <cassert>
#include <optional>
#include <set>
#include <utility>

#include "operator/operations.h"
#include "operator/operators.h"
#include "source/registry/openSource.h"

namespace kv::runtime {

namespace {

/// True if a schema has these columns, in this order.
bool hasInOrder(const Schema& schema, const std::vector<std::string>& columns) {
  auto next = columns.begin();
  for (const ColumnInfo& column : schema) {
    if (next != columns.end() && *next == column.name) {
      ++next;
    }
  }
  return next == columns.end();
}

std::vector<std::string> readableColumns(const Schema& schema) {
  std::vector<std::string> names;
  for (const ColumnInfo& column : schema) {
    if (column.isReadable()) {
      names.push_back(column.name);
    }
  }
  return names;
}

/// The names, and the types that the columns have in the source where these are other ones.
///
/// Requires: hasInOrder(schema, names).
std::vector<std::string> namesWithTypes(const Schema& schema,
                                        const std::vector<std::string>& names) {
  std::vector<std::string> shown;
  auto column = schema.begin();
  for (const std::string& name : names) {
    column = std::ranges::find(column, schema.end(), name, &ColumnInfo::name);
    shown.push_back(column->fileType.empty() ? name
                                             : fmt::format("{} ({})", name, column->fileType));
  }
  return shown;
}

bool isReadable(const Schema& schema, const std::string& name) {
  const auto column = std::ranges::find(schema, name, &ColumnInfo::name);
  return column != schema.end() && column->isReadable();
}

class Read final : public ReadOperator {
 public:
  Read(std::shared_ptr<const Datastore> source, std::optional<std::vector<std::string>> columns,
       std::vector<ReadCondition> conditions)
      : ReadOperator({.name = "read"}),
        source_(std::move(source)),
        columns_(std::move(columns)),
        conditions_(std::move(conditions)) {}

  std::shared_ptr<const Datastore> source() const override { return source_; }
  std::vector<std::string> columns() const override {
    return columns_ ? *columns_ : readableColumns(source_->schema());
  }

  std::string planNote() const override {
    const std::vector<std::string> read = columns();
    std::string note = fmt::format("{} of {} columns: {}", read.size(), source_->schema().size(),
                                   fmt::join(namesWithTypes(source_->schema(), read), ", "));
    if (const std::string format = source_->formatNote(); !format.empty()) {
      note += "; " + format;
    }
    std::set<std::string> names;
    for (const ReadCondition& condition : conditions_) {
      names.insert(condition.column);
    }
    return names.empty()
               ? note
               : fmt::format("{}; skips rows by statistics of {}", note, fmt::join(names, ", "));
  }

  std::vector<ReadCondition> conditions() const override { return conditions_; }

  void write(ByteWriter& bytes) const override {
    bytes.text(source_->describe());
    bytes.texts(columns());
    bytes.number<std::uint64_t>(conditions_.size());
    for (const ReadCondition& condition : conditions_) {
      bytes.text(condition.column);
      bytes.text(condition.comparison);
      bytes.number<std::uint64_t>(condition.value);
    }
  }

 private:
  std::shared_ptr<const Datastore> source_;
  std::optional<std::vector<std::string>> columns_;  ///< none: all that can be read
  std::vector<ReadCondition> conditions_;
};

}  // namespace

OperatorPtr makeRead(std::shared_ptr<const Datastore> source) {
  return std::make_shared<Read>(std::move(source), std::nullopt, std::vector<ReadCondition>());
}

OperatorPtr makeRead(std::shared_ptr<const Datastore> source, std::vector<std::string> columns,
                     std::vector<ReadCondition> conditions) {
  assert(hasInOrder(source->schema(), columns));
  return std::make_shared<Read>(std::move(source), std::move(columns), std::move(conditions));
}

namespace {

OperatorPtr readRead(ByteReader& bytes) {
  std::shared_ptr<const Datastore> source = openSource(bytes.text());
  std::vector<std::string> columns = bytes.texts();
  if (!hasInOrder(source->schema(), columns)) {
    bytes.refuse();
  }
  std::vector<ReadCondition> conditions(bytes.count(3 * sizeof(std::uint64_t)));
  for (ReadCondition& condition : conditions) {
    condition.column = bytes.text();
    condition.comparison = bytes.text();
    condition.value = bytes.number<std::uint64_t>();
    if (!isReadable(source->schema(), condition.column)) {
      bytes.refuse();
    }
  }
  return makeRead(std::move(source), std::move(columns), std::move(conditions));
}

void describeRead(const RecordedOperation& operation, OpSpec& spec) {
  const RecordedSource source = operation.source();
  spec.op = makeRead(source.store);
  spec.isTrusted = source.isTrusted;
  spec.label = "read " + source.store->displayName();
}

}  // namespace

const OperatorRow& readRow() {
  static const OperatorRow row{"read",
                               readRead,
                               {{.name = "kalvex.bigdata.internal.lazyeval.ReadOperation",
                                 .inputs = {"Datastore", "NumOutputs", "PartitionStrategy"},
                                 .arity = kSource,
                                 .describe = describeRead,
                                 .supportsPreview = true,
                                 .shownProperty = "Datastore"}}};
  return row;
}

}  // namespace kv::runtime

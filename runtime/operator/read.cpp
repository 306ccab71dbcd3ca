#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <cassert>
#include <optional>
#include <utility>

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

class Read final : public StatelessOperator {
 public:
  Read(std::shared_ptr<const Datastore> source, std::optional<std::vector<std::string>> columns)
      : source_(std::move(source)), columns_(std::move(columns)) {}

  std::string_view kind() const override { return "read"; }
  RowEffect rowEffect() const override { return RowEffect::Create; }
  std::shared_ptr<const Datastore> source() const override { return source_; }
  std::vector<std::string> columns() const override {
    return columns_ ? *columns_ : readableColumns(source_->schema());
  }

  std::string planNote() const override {
    const std::vector<std::string> read = columns();
    return fmt::format("{} of {} columns: {}", read.size(), source_->schema().size(),
                       fmt::join(read, ", "));
  }

  std::vector<Chunk> process(const StepInputs& inputs) const override { return {inputs.source()}; }

  void write(ByteWriter& bytes) const override {
    bytes.text(source_->describe());
    bytes.texts(columns());
  }

 private:
  std::shared_ptr<const Datastore> source_;
  std::optional<std::vector<std::string>> columns_;  ///< none: all that can be read
};

}  // namespace

OperatorPtr makeRead(std::shared_ptr<const Datastore> source) {
  return std::make_shared<Read>(std::move(source), std::nullopt);
}

OperatorPtr makeRead(std::shared_ptr<const Datastore> source, std::vector<std::string> columns) {
  assert(hasInOrder(source->schema(), columns));
  return std::make_shared<Read>(std::move(source), std::move(columns));
}

OperatorPtr readRead(ByteReader& bytes) {
  std::shared_ptr<const Datastore> source = openSource(bytes.text());
  std::vector<std::string> columns = bytes.texts();
  if (!hasInOrder(source->schema(), columns)) {
    bytes.refuse();
  }
  return makeRead(std::move(source), std::move(columns));
}

}  // namespace kv::runtime

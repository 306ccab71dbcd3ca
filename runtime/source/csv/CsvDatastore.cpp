#include "source/csv/CsvDatastore.h"

#include <fmt/format.h>

#include <utility>

#include "kv/errors/StepError.h"
#include "source/Fingerprint.h"
#include "source/PathExpansion.h"
#include "source/csv/CsvReader.h"
#include "source/csv/CsvSchema.h"
#include "source/csv/describeTable.h"

namespace kv::runtime {

namespace {

/// A table from a saved file has the fingerprint of the saved table.
std::string fingerprintOf(const CsvDatastore::Table& table) {
  Fingerprint print;
  print.add("csv").add(static_cast<std::int64_t>(table.files.size()));
  for (const SourceFile& file : table.files) {
    print.add(file.absolutePath).add(file.bytes).add(file.modified);
  }
  for (const ColumnInfo& column : table.schema) {
    print.add(column.name).add(elementTypeName(column.type));
  }
  return print.digits();
}

std::vector<SourceFile> lookAt(const std::vector<std::string>& paths) {
  std::vector<SourceFile> files;
  for (const std::string& path : paths) {
    for (const std::string& file : expandPath(path)) {
      files.push_back(SourceFile::stat(file));
    }
  }
  return files;
}

std::string nameOf(const std::vector<std::string>& paths, std::size_t files) {
  const std::string name = fmt::format("{}", fmt::join(paths, ", "));
  return files == 1 ? name : fmt::format("{} ({} files)", name, files);
}

Chunk chunkWithoutRows(const Schema& schema) {
  Chunk chunk;
  chunk.names = std::make_shared<const std::vector<std::string>>(columnNames(schema));
  for (const ColumnInfo& info : schema) {
    chunk.columns.push_back(emptyColumn(info.type));
  }
  return chunk;
}

Chunk firstRows(Chunk chunk, std::int64_t rows) {
  if (rows >= chunk.rows()) {
    return chunk;
  }
  chunk.ordinals = chunk.ordinals.slice(0, rows);
  for (Column& column : chunk.columns) {
    column = column.slice(0, rows);
  }
  return chunk;
}

CsvDatastore::Table tableIn(const std::vector<std::string>& paths,
                            const std::vector<TypeOverride>& types) {
  if (paths.empty()) {
    errors::raiseStep("KALVEX:datastore:NoPaths");
  }
  CsvDatastore::Table table;
  table.files = lookAt(paths);
  table.name = nameOf(paths, table.files.size());
  table.schema = readCsvSchema(table.files, types);
  return table;
}

}  // namespace

CsvDatastore::CsvDatastore(const std::vector<std::string>& paths,
                           const std::vector<TypeOverride>& types)
    : CsvDatastore(tableIn(paths, types)) {}

CsvDatastore::CsvDatastore(Table table)
    : table_(std::make_shared<const Table>(std::move(table))),
      fingerprint_(fingerprintOf(*table_)) {}

std::int64_t CsvDatastore::numPartitions() const {
  return static_cast<std::int64_t>(table_->files.size());
}

std::unique_ptr<ChunkReader> CsvDatastore::openPartition(
    std::int64_t partition, const std::vector<std::string>& columns,
    const CancellationToken& cancellation) const {
  const SourceFile& file = table_->files.at(static_cast<std::size_t>(partition));
  return std::make_unique<CsvReader>(file, partition, table_->schema, columns, cancellation);
}

Chunk CsvDatastore::preview(std::int64_t rows) const {
  const CancellationToken never;
  const std::vector<std::string> columns = columnNames(table_->schema);
  for (std::int64_t partition = 0; partition < numPartitions(); ++partition) {
    auto chunk = openPartition(partition, columns, never)->next();
    if (chunk) {
      return firstRows(*std::move(chunk), rows);
    }
  }
  return chunkWithoutRows(table_->schema);
}

std::unique_ptr<Datastore> CsvDatastore::copy() const {
  return std::make_unique<CsvDatastore>(*this);
}

std::string CsvDatastore::describe() const { return describeTable(*table_); }

TypeOverride parseTypeOverride(std::string_view text) {
  const std::size_t sign = text.rfind('=');
  if (sign == std::string_view::npos) {
    errors::raiseStep("KALVEX:datastore:BadTypeOverride", {std::string(text)});
  }
  return {std::string(text.substr(0, sign)), std::string(text.substr(sign + 1))};
}

std::unique_ptr<Datastore> openCsv(const std::vector<std::string>& paths,
                                   const std::vector<TypeOverride>& types) {
  return std::make_unique<CsvDatastore>(paths, types);
}

}  // namespace kv::runtime

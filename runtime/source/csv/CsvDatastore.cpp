#include "source/csv/CsvDatastore.h"

#include <algorithm>
#include <utility>

#include "source/Fingerprint.h"
#include "source/csv/CsvReader.h"
#include "source/csv/CsvSchema.h"

namespace kv::runtime {

namespace {

/// A table from a saved file has the fingerprint of the saved table.
std::string fingerprintOf(const FileTable& table) {
  Fingerprint print;
  print.add(kCsvFormat).add(static_cast<std::int64_t>(table.files.size()));
  for (const SourceFile& file : table.files) {
    print.add(file.absolutePath).add(file.bytes).add(file.modified);
  }
  for (const ColumnInfo& column : table.schema) {
    print.add(column.name).add(elementTypeName(column.type));
  }
  return print.digits();
}

FileTable tableIn(const std::vector<std::string>& paths, const std::vector<TypeOverride>& types) {
  FileTable table = lookAtFiles(paths, {".csv"});
  table.schema = readCsvSchema(table.files, types);
  return table;
}

}  // namespace

CsvDatastore::CsvDatastore(const std::vector<std::string>& paths,
                           const std::vector<TypeOverride>& types)
    : CsvDatastore(tableIn(paths, types)) {}

CsvDatastore::CsvDatastore(FileTable table)
    : table_(std::make_shared<const FileTable>(std::move(table))),
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

std::unique_ptr<Datastore> CsvDatastore::copy() const {
  return std::make_unique<CsvDatastore>(*this);
}

std::string CsvDatastore::describe() const {
  ByteWriter bytes;
  bytes.text(kCsvFormat);
  writeTable(bytes, *table_);
  return bytes.take();
}

std::shared_ptr<const FileDatastore> CsvDatastore::openOthers(
    const std::vector<std::string>& paths) const {
  return std::make_shared<CsvDatastore>(paths, std::vector<TypeOverride>{});
}

std::shared_ptr<const FileDatastore> CsvDatastore::withFiles(std::string name,
                                                             const FileDatastore& others,
                                                             std::span<const FileOf> files) const {
  FileTable table{std::move(name), {}, others.schema()};
  for (ColumnInfo& column : table.schema) {
    const auto before = std::ranges::find(table_->schema, column.name, &ColumnInfo::name);
    if (before != table_->schema.end()) {
      column = *before;
    }
  }
  for (const FileOf& each : files) {
    table.files.push_back(each.source->table().files[each.file]);
  }
  return std::make_shared<CsvDatastore>(std::move(table));
}

std::shared_ptr<const Datastore> openDescribedCsv(ByteReader& bytes) {
  FileTable table = readTable(bytes);
  const auto isUnknown = [](const ColumnInfo& column) { return !column.isReadable(); };
  if (std::ranges::any_of(table.schema, isUnknown)) {
    bytes.refuse();
  }
  return std::make_shared<CsvDatastore>(std::move(table));
}

std::unique_ptr<Datastore> openCsv(const std::vector<std::string>& paths,
                                   const std::vector<TypeOverride>& types) {
  return std::make_unique<CsvDatastore>(paths, types);
}

}  // namespace kv::runtime

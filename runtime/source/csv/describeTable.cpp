#include "source/csv/describeTable.h"

#include <utility>

namespace kv::runtime {

std::string describeTable(const CsvDatastore::Table& table) {
  ByteWriter bytes;
  bytes.text(kCsvFormat);
  bytes.text(table.name);
  bytes.number<std::uint64_t>(table.files.size());
  for (const SourceFile& file : table.files) {
    bytes.text(file.path);
    bytes.text(file.absolutePath);
    bytes.number(file.bytes);
    bytes.number(file.modified);
    bytes.flag(file.isFromSave);
  }
  bytes.number<std::uint64_t>(table.schema.size());
  for (const ColumnInfo& column : table.schema) {
    bytes.text(column.name);
    bytes.number(static_cast<std::uint8_t>(column.type));
    bytes.flag(column.isUndecided);
  }
  return bytes.take();
}

std::shared_ptr<const Datastore> openDescribedCsv(ByteReader& bytes) {
  CsvDatastore::Table table;
  table.name = bytes.text();
  table.files.resize(bytes.count(4 * sizeof(std::uint64_t)));
  for (SourceFile& file : table.files) {
    file.path = bytes.text();
    file.absolutePath = bytes.text();
    file.bytes = bytes.number<std::int64_t>();
    file.modified = bytes.number<std::int64_t>();
    file.isFromSave = bytes.flag();
  }
  table.schema.resize(bytes.count(sizeof(std::uint64_t) + 2));
  for (ColumnInfo& column : table.schema) {
    column.name = bytes.text();
    column.type = readElementType(bytes);
    column.isUndecided = bytes.flag();
  }
  if (table.files.empty()) {
    bytes.refuse();
  }
  return std::make_shared<CsvDatastore>(std::move(table));
}

}  // namespace kv::runtime

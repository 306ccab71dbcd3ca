// Partitions are runs of row groups, which follow from the footers alone. A footer is parsed once,
// when its file is opened or, for a table from a description, when the first of its partitions is,
// and given to all readers.

#include "source/parquet/ParquetDatastore.h"

#include <algorithm>
#include <cassert>
#include <utility>

#include "column/pool.h"
#include "kv/errors/StepError.h"
#include "kv/runtime/parquet.h"
#include "source/Fingerprint.h"
#include "source/parquet/ParquetReader.h"

namespace kv::runtime {

namespace {

using FooterPtr = std::shared_ptr<const ParquetFooter>;

/// A partition of a table: row groups of one of its files.
struct Place {
  std::size_t file = 0;
  RowGroups groups;
};

std::vector<Place> placesIn(const ParquetTable& table) {
  std::vector<Place> places;
  for (std::size_t file = 0; file < table.files.size(); ++file) {
    for (const RowGroups& groups : table.files[file].partitions) {
      places.push_back({file, groups});
    }
  }
  return places;
}

std::string fingerprintOf(const ParquetTable& table) {
  Fingerprint print;
  print.add(kParquetFormat).add(static_cast<std::int64_t>(table.files.size()));
  for (std::size_t i = 0; i < table.files.size(); ++i) {
    const SourceFile& file = table.common.files[i];
    print.add(file.absolutePath).add(file.bytes).add(file.modified);
    print.add(table.files[i].footerHash);
    print.add(static_cast<std::int64_t>(table.files[i].partitions.size()));
  }
  for (const ColumnInfo& column : table.common.schema) {
    print.add(column.name).add(elementTypeName(column.type)).add(column.isNullable ? 1 : 0);
  }
  return print.digits();
}

std::string shownType(const ColumnInfo& column) {
  return column.isReadable() ? std::string(elementTypeName(column.type)) : column.fileType;
}

/// Errors: "KALVEX:datastore:DifferentColumns", "KALVEX:datastore:DifferentTypes".
void requireSameSchema(const std::string& path, const Schema& schema, const std::string& first,
                       const Schema& expected) {
  requireSameColumns(path, columnNames(schema), first, columnNames(expected));
  const auto [column, other] =
      std::ranges::mismatch(schema, expected, {}, &ColumnInfo::type, &ColumnInfo::type);
  if (column != schema.end()) {
    errors::raiseStep("KALVEX:datastore:DifferentTypes",
                      {path, column->name, shownType(*column), first, shownType(*other)});
  }
}

/// A column of a table is nullable if it is in one of the files.
///
/// Requires: the columns are the same.
void addNullable(Schema& schema, const Schema& more) {
  assert(schema.size() == more.size());
  for (std::size_t i = 0; i < schema.size(); ++i) {
    schema[i].isNullable |= more[i].isNullable;
  }
}

/// A type that the user names may only confirm that of the file.
void checkTypes(const FileTable& table, const std::vector<TypeOverride>& types) {
  for (const TypeOverride& wanted : types) {
    const ColumnInfo& column = table.schema[columnIndex(table.schema, wanted.column)];
    if (typeNamed(wanted) != column.type) {
      errors::raiseStep("KALVEX:datastore:FixedType",
                        {table.name, column.name, wanted.type, shownType(column)});
    }
  }
}

std::string described(const ParquetTable& table) {
  ByteWriter bytes;
  bytes.text(kParquetFormat);
  writeTable(bytes, table.common);
  bytes.number(table.partitionBytes);
  for (const ParquetTable::File& file : table.files) {
    bytes.text(file.footerHash);
    bytes.number<std::uint64_t>(file.partitions.size());
    for (const RowGroups& groups : file.partitions) {
      bytes.number(groups.first);
      bytes.number(groups.end);
      bytes.number(groups.firstRow);
      bytes.number(groups.rows);
    }
  }
  return bytes.take();
}

}  // namespace

/// Files that were just opened.
struct ParquetDatastore::Opening {
  ParquetTable table;
  std::vector<FooterPtr> footers;

  Opening(const std::vector<std::string>& paths, const std::vector<TypeOverride>& types,
          std::int64_t partitionBytes)
      : table{lookAtFiles(paths, {".parquet"}), {}, partitionBytes} {
    FileTable& common = table.common;
    for (const SourceFile& file : common.files) {
      const FooterPtr footer = ParquetFooter::read(SourceInput(file));
      if (footers.empty()) {
        common.schema = footer->schema;
      }
      requireSameSchema(file.path, footer->schema, common.files.front().path, common.schema);
      addNullable(common.schema, footer->schema);
      table.files.push_back({footer->hash, footer->partitions(partitionBytes)});
      footers.push_back(footer);
    }
    checkTypes(common, types);
  }
};

struct ParquetDatastore::State {
  explicit State(ParquetTable described)
      : table(std::move(described)),
        places(placesIn(table)),
        fingerprint(fingerprintOf(table)),
        footers(table.files.size()) {
    assert(table.files.size() == table.common.files.size());
  }

  /// The footer of a file, which is read once for all readers.
  FooterPtr footerOf(std::size_t file, const SourceInput& input) {
    const std::lock_guard lock(mutex);
    if (footers[file] == nullptr) {
      const FooterPtr footer = ParquetFooter::read(input);
      // Size and time may agree by chance.
      if (footer->hash != table.files[file].footerHash ||
          footer->partitions(table.partitionBytes) != table.files[file].partitions) {
        input.file().throwChanged();
      }
      footers[file] = footer;
    }
    return footers[file];
  }

  const ParquetTable table;
  const std::vector<Place> places;
  const std::string fingerprint;
  std::mutex mutex;                ///< of `footers`
  std::vector<FooterPtr> footers;  ///< null until one is needed
};

ParquetDatastore::ParquetDatastore(const std::vector<std::string>& paths,
                                   const std::vector<TypeOverride>& types,
                                   std::int64_t partitionBytes)
    : ParquetDatastore(Opening(paths, types, partitionBytes)) {}

ParquetDatastore::ParquetDatastore(Opening opened) : ParquetDatastore(std::move(opened.table)) {
  state_->footers = std::move(opened.footers);
}

ParquetDatastore::ParquetDatastore(ParquetTable table)
    : state_(std::make_shared<State>(std::move(table))) {}

const FileTable& ParquetDatastore::table() const { return state_->table.common; }

std::int64_t ParquetDatastore::numPartitions() const {
  return static_cast<std::int64_t>(state_->places.size());
}

const std::string& ParquetDatastore::fingerprint() const { return state_->fingerprint; }

std::size_t ParquetDatastore::fileNumber(std::int64_t partition) const {
  return state_->places.at(static_cast<std::size_t>(partition)).file;
}

std::unique_ptr<ChunkReader> ParquetDatastore::openPartition(
    std::int64_t partition, const std::vector<std::string>& columns,
    const CancellationToken& cancellation) const {
  return openPartitionWhere(partition, columns, {}, cancellation);
}

std::unique_ptr<ChunkReader> ParquetDatastore::openPartitionWhere(
    std::int64_t partition, const std::vector<std::string>& columns,
    const std::vector<RowCondition>& conditions, const CancellationToken& cancellation) const {
  assert(partition >= 0 && partition < numPartitions());
  assert(canCheck(conditions));
  const Place& place = state_->places.at(static_cast<std::size_t>(partition));
  ParquetRequest request{partition, place.groups, {}, conditions, currentPool()};
  for (const std::string& name : columns) {
    request.columns.push_back(schema()[columnIndex(schema(), name)]);
    const ColumnInfo& column = request.columns.back();
    if (!column.isReadable()) {
      errors::raiseStep("KALVEX:datastore:UnsupportedColumn", {column.name, column.fileType});
    }
  }
  const SourceFile& file = table().files[place.file];
  auto input = std::make_unique<ParquetInput>(file, request.pool);
  FooterPtr footer = state_->footerOf(place.file, input->source());
  // A description may come from anyone, and columns may have been read with other types.
  for (const ColumnInfo& column : request.columns) {
    const auto found = std::ranges::find(footer->schema, column.name, &ColumnInfo::name);
    if (found == footer->schema.end() || found->type != column.type) {
      file.throwChanged();
    }
  }
  return std::make_unique<ParquetReader>(std::move(input), std::move(footer), std::move(request),
                                         cancellation);
}

std::optional<std::int64_t> ParquetDatastore::knownRows(std::int64_t partition) const {
  assert(partition >= 0 && partition < numPartitions());
  return state_->places.at(static_cast<std::size_t>(partition)).groups.rows;
}

/// A page of each column, compressed and not, and its values.
std::int64_t ParquetDatastore::estimateBytes(std::int64_t partition,
                                             const std::vector<std::string>& columns) const {
  constexpr std::int64_t kPages = 2 << 20;
  return std::ssize(columns) * kPages + Datastore::estimateBytes(partition, columns);
}

std::unique_ptr<Datastore> ParquetDatastore::copy() const {
  return std::make_unique<ParquetDatastore>(*this);
}

std::string ParquetDatastore::describe() const { return described(state_->table); }

std::string ParquetDatastore::describeForSave() const {
  ParquetTable table = state_->table;
  for (SourceFile& file : table.common.files) {
    file.isFromSave = true;
  }
  return described(table);
}

std::shared_ptr<const FileDatastore> ParquetDatastore::openOthers(
    const std::vector<std::string>& paths) const {
  return std::make_shared<ParquetDatastore>(paths, std::vector<TypeOverride>{},
                                            state_->table.partitionBytes);
}

std::shared_ptr<const FileDatastore> ParquetDatastore::withFiles(
    std::string name, const FileDatastore& others, std::span<const FileOf> files) const {
  assert(dynamic_cast<const ParquetDatastore*>(&others) != nullptr);
  ParquetTable merged{{std::move(name), {}, others.schema()}, {}, state_->table.partitionBytes};
  for (ColumnInfo& column : merged.common.schema) {
    const auto before = std::ranges::find(schema(), column.name, &ColumnInfo::name);
    if (before == schema().end()) {
      continue;
    }
    if (before->type != column.type) {
      errors::raiseStep("KALVEX:datastore:DifferentTypes",
                        {others.displayName(), column.name, shownType(column), displayName(),
                         shownType(*before)});
    }
    column.isNullable |= before->isNullable;
  }
  for (const FileOf& each : files) {
    const auto& source = static_cast<const ParquetDatastore&>(*each.source);
    merged.common.files.push_back(source.table().files[each.file]);
    merged.files.push_back(source.state_->table.files[each.file]);
  }
  return std::make_shared<ParquetDatastore>(std::move(merged));
}

std::shared_ptr<const Datastore> openDescribedParquet(ByteReader& bytes) {
  ParquetTable table{readTable(bytes), {}, bytes.number<std::int64_t>()};
  table.files.resize(table.common.files.size());
  for (ParquetTable::File& file : table.files) {
    file.footerHash = bytes.text();
    file.partitions.resize(bytes.count(2 * sizeof(std::int32_t) + 2 * sizeof(std::int64_t)));
    for (RowGroups& groups : file.partitions) {
      groups.first = bytes.number<std::int32_t>();
      groups.end = bytes.number<std::int32_t>();
      groups.firstRow = bytes.number<std::int64_t>();
      groups.rows = bytes.number<std::int64_t>();
    }
    if (file.partitions.empty() || table.partitionBytes < 1) {
      bytes.refuse();
    }
  }
  return std::make_shared<ParquetDatastore>(std::move(table));
}

std::unique_ptr<Datastore> openParquet(const std::vector<std::string>& paths,
                                       const std::vector<TypeOverride>& types) {
  return std::make_unique<ParquetDatastore>(paths, types);
}

}  // namespace kv::runtime

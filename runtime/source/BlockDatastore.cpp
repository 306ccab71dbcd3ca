// Partitions are runs of blocks, which follow from what the files say about themselves. That is
// read once, when a file is opened or, for a table from a description, when the first of its
// partitions is, and given to all readers.

#include "source/BlockDatastore.h"

#include <algorithm>
#include <cassert>
#include <utility>

#include "column/pool.h"
#include "kv/errors/StepError.h"
#include "source/Fingerprint.h"

namespace kv::runtime {

namespace {

using BlockFilePtr = std::shared_ptr<const BlockFile>;

/// A partition of a table: blocks of one of its files.
struct Place {
  std::size_t file = 0;
  BlockRun blocks;
};

std::vector<Place> placesIn(const BlockFiles& table) {
  std::vector<Place> places;
  for (std::size_t file = 0; file < table.files.size(); ++file) {
    for (const BlockRun& blocks : table.files[file].partitions) {
      places.push_back({file, blocks});
    }
  }
  return places;
}

std::string fingerprintOf(const BlockFormat& format, const BlockFiles& table) {
  Fingerprint print;
  print.add(format.name).add(static_cast<std::int64_t>(table.files.size()));
  for (std::size_t i = 0; i < table.files.size(); ++i) {
    const SourceFile& file = table.common.files[i];
    print.add(file.absolutePath).add(file.bytes).add(file.modified);
    print.add(table.files[i].hash);
    print.add(static_cast<std::int64_t>(table.files[i].partitions.size()));
  }
  for (const ColumnInfo& column : table.common.schema) {
    print.add(column.name).add(elementTypeName(column.type)).add(column.isNullable ? 1 : 0);
  }
  return print.digits();
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

std::string described(const BlockFormat& format, const BlockFiles& table) {
  ByteWriter bytes;
  bytes.text(format.name);
  writeTable(bytes, table.common);
  bytes.number(table.partitionBytes);
  for (const BlockFiles::File& file : table.files) {
    bytes.text(file.hash);
    bytes.number<std::uint64_t>(file.partitions.size());
    for (const BlockRun& blocks : file.partitions) {
      bytes.number(blocks.first);
      bytes.number(blocks.end);
      bytes.number(blocks.firstRow);
      bytes.number(blocks.rows);
      bytes.number(blocks.largest);
    }
  }
  return bytes.take();
}

}  // namespace

/// Files that were just opened.
struct BlockDatastore::Opening {
  BlockFiles table;
  std::vector<BlockFilePtr> opened;

  Opening(const BlockFormat& format, const std::vector<std::string>& paths,
          const std::vector<TypeOverride>& types, std::int64_t partitionBytes)
      : table{lookAtFiles(paths, {format.endings.begin(), format.endings.end()}),
              {},
              partitionBytes} {
    FileTable& common = table.common;
    for (const SourceFile& file : common.files) {
      const BlockFilePtr blocks = format.read(SourceInput(file));
      if (opened.empty()) {
        common.schema = blocks->schema;
      }
      requireSameSchema(file.path, blocks->schema, common.files.front().path, common.schema);
      addNullable(common.schema, blocks->schema);
      table.files.push_back({blocks->hash, blocks->partitions(partitionBytes)});
      opened.push_back(blocks);
    }
    requireTypes(common.name, common.schema, types);
  }
};

struct BlockDatastore::State {
  State(const BlockFormat& format, BlockFiles described)
      : table(std::move(described)),
        places(placesIn(table)),
        fingerprint(fingerprintOf(format, table)),
        opened(table.files.size()) {
    assert(table.files.size() == table.common.files.size());
  }

  /// What a file says about itself, which is read once for all readers.
  BlockFilePtr fileOf(const BlockFormat& format, std::size_t file, const SourceInput& input) {
    const std::lock_guard lock(mutex);
    if (opened[file] == nullptr) {
      const BlockFilePtr blocks = format.read(input);
      // Size and time may agree by chance.
      if (blocks->hash != table.files[file].hash ||
          blocks->partitions(table.partitionBytes) != table.files[file].partitions) {
        input.file().throwChanged();
      }
      opened[file] = blocks;
    }
    return opened[file];
  }

  const BlockFiles table;
  const std::vector<Place> places;
  const std::string fingerprint;
  std::mutex mutex;                  ///< of `opened`
  std::vector<BlockFilePtr> opened;  ///< null until one is needed
};

BlockDatastore::BlockDatastore(const BlockFormat& format, const std::vector<std::string>& paths,
                               const std::vector<TypeOverride>& types, std::int64_t partitionBytes)
    : BlockDatastore(format, Opening(format, paths, types, partitionBytes)) {}

BlockDatastore::BlockDatastore(const BlockFormat& format, Opening opened)
    : BlockDatastore(format, std::move(opened.table)) {
  state_->opened = std::move(opened.opened);
}

BlockDatastore::BlockDatastore(const BlockFormat& format, BlockFiles table)
    : format_(&format), state_(std::make_shared<State>(format, std::move(table))) {}

const FileTable& BlockDatastore::table() const { return state_->table.common; }

std::int64_t BlockDatastore::numPartitions() const {
  return static_cast<std::int64_t>(state_->places.size());
}

const std::string& BlockDatastore::fingerprint() const { return state_->fingerprint; }

std::size_t BlockDatastore::fileNumber(std::int64_t partition) const {
  return state_->places.at(static_cast<std::size_t>(partition)).file;
}

std::unique_ptr<ChunkReader> BlockDatastore::openPartition(
    std::int64_t partition, const std::vector<std::string>& columns,
    const CancellationToken& cancellation) const {
  return openPartitionWhere(partition, columns, {}, cancellation);
}

std::unique_ptr<ChunkReader> BlockDatastore::openPartitionWhere(
    std::int64_t partition, const std::vector<std::string>& columns,
    const std::vector<RowCondition>& conditions, const CancellationToken& cancellation) const {
  assert(partition >= 0 && partition < numPartitions());
  assert(canCheck(conditions));
  const Place& place = state_->places.at(static_cast<std::size_t>(partition));
  BlockRequest request{partition, place.blocks, {}, conditions, currentPool()};
  for (const std::string& name : columns) {
    request.columns.push_back(schema()[columnIndex(schema(), name)]);
    const ColumnInfo& column = request.columns.back();
    if (!column.isReadable()) {
      errors::raiseStep("KALVEX:datastore:UnsupportedColumn", {column.name, column.fileType});
    }
  }
  const SourceFile& file = table().files[place.file];
  auto input = std::make_unique<ArrowInput>(file, request.pool);
  BlockFilePtr blocks = state_->fileOf(*format_, place.file, input->source());
  // A description may come from anyone, and columns may have been read with other types.
  for (const ColumnInfo& column : request.columns) {
    const auto found = std::ranges::find(blocks->schema, column.name, &ColumnInfo::name);
    if (found == blocks->schema.end() || found->type != column.type) {
      file.throwChanged();
    }
  }
  return format_->open(std::move(input), std::move(blocks), std::move(request), cancellation);
}

std::optional<std::int64_t> BlockDatastore::knownRows(std::int64_t partition) const {
  assert(partition >= 0 && partition < numPartitions());
  return state_->places.at(static_cast<std::size_t>(partition)).blocks.rows;
}

std::int64_t BlockDatastore::estimateBytes(std::int64_t partition,
                                           const std::vector<std::string>& columns) const {
  const BlockRun& blocks = state_->places.at(static_cast<std::size_t>(partition)).blocks;
  return format_->readerBytes(blocks, std::ssize(columns), std::ssize(schema())) +
         Datastore::estimateBytes(partition, columns);
}

std::unique_ptr<Datastore> BlockDatastore::copy() const {
  return std::make_unique<BlockDatastore>(*this);
}

std::string BlockDatastore::describe() const { return described(*format_, state_->table); }

std::string BlockDatastore::describeForSave() const {
  BlockFiles table = state_->table;
  for (SourceFile& file : table.common.files) {
    file.isFromSave = true;
  }
  return described(*format_, table);
}

std::shared_ptr<const FileDatastore> BlockDatastore::openOthers(
    const std::vector<std::string>& paths) const {
  return std::make_shared<BlockDatastore>(*format_, paths, std::vector<TypeOverride>{},
                                          state_->table.partitionBytes);
}

std::shared_ptr<const FileDatastore> BlockDatastore::withFiles(
    std::string name, const FileDatastore& others, std::span<const FileOf> files) const {
  assert(dynamic_cast<const BlockDatastore*>(&others) != nullptr);
  BlockFiles merged{{std::move(name), {}, others.schema()}, {}, state_->table.partitionBytes};
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
    const auto& source = static_cast<const BlockDatastore&>(*each.source);
    merged.common.files.push_back(source.table().files[each.file]);
    merged.files.push_back(source.state_->table.files[each.file]);
  }
  return std::make_shared<BlockDatastore>(*format_, std::move(merged));
}

std::shared_ptr<const Datastore> openDescribedBlocks(const BlockFormat& format, ByteReader& bytes) {
  BlockFiles table{readTable(bytes), {}, bytes.number<std::int64_t>()};
  table.files.resize(table.common.files.size());
  for (BlockFiles::File& file : table.files) {
    file.hash = bytes.text();
    file.partitions.resize(bytes.count(2 * sizeof(std::int32_t) + 3 * sizeof(std::int64_t)));
    for (BlockRun& blocks : file.partitions) {
      blocks.first = bytes.number<std::int32_t>();
      blocks.end = bytes.number<std::int32_t>();
      blocks.firstRow = bytes.number<std::int64_t>();
      blocks.rows = bytes.number<std::int64_t>();
      blocks.largest = bytes.number<std::int64_t>();
    }
    if (file.partitions.empty() || table.partitionBytes < 1) {
      bytes.refuse();
    }
  }
  return std::make_shared<BlockDatastore>(format, std::move(table));
}

}  // namespace kv::runtime

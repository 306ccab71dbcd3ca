// Partitions are byte ranges of each file, whose number follows from the sizes of the files alone.
// Where the records of a range begin is found when the range is opened.

#include "source/csv/CsvDatastore.h"

#include <algorithm>
#include <cassert>
#include <deque>
#include <utility>

#include "source/Fingerprint.h"
#include "source/csv/CsvReader.h"
#include "source/csv/CsvSchema.h"

namespace kv::runtime {

namespace {

/// A table from a saved file has the fingerprint of the saved table.
/// As many as fit on a screen next to other things.
constexpr std::int64_t kFirstRows = 5;

std::string fingerprintOf(const FileTable& table, std::int64_t partitions) {
  Fingerprint print;
  print.add(kCsvFormat).add(static_cast<std::int64_t>(table.files.size()));
  for (const SourceFile& file : table.files) {
    print.add(file.absolutePath).add(file.bytes).add(file.modified);
  }
  for (const ColumnInfo& column : table.schema) {
    print.add(column.name).add(elementTypeName(column.type));
  }
  if (partitions > std::ssize(table.files)) {
    print.add(partitions);
  }
  return print.digits();
}

FileTable tableIn(const std::vector<std::string>& paths, const std::vector<TypeOverride>& types) {
  FileTable table = lookAtFiles(paths, {".csv"});
  table.schema = readCsvSchema(table.files, types);
  return table;
}

}  // namespace

struct CsvDatastore::State {
  State(FileTable described, std::int64_t bytes) : table(std::move(described)), rangeBytes(bytes) {
    for (const SourceFile& file : table.files) {
      indexes.emplace_back(file, rangeBytes);
      ends.push_back((ends.empty() ? 0 : ends.back()) + indexes.back().numRanges());
    }
    fingerprint = fingerprintOf(table, ends.back());
  }

  const FileTable table;
  const std::int64_t rangeBytes;
  std::deque<CsvIndex> indexes;    ///< one for each file
  std::vector<std::int64_t> ends;  ///< of each file: the partition after its last one
  std::string fingerprint;
  Chunk firstRows{};
};

CsvDatastore::CsvDatastore(const std::vector<std::string>& paths,
                           const std::vector<TypeOverride>& types, std::int64_t rangeBytes)
    : CsvDatastore(tableIn(paths, types), rangeBytes) {
  state_->firstRows = firstCsvRows(table().files.front(), schema(), kFirstRows);
}

CsvDatastore::CsvDatastore(FileTable table, std::int64_t rangeBytes)
    : state_(std::make_shared<State>(std::move(table), rangeBytes)) {}

const Chunk& CsvDatastore::firstRows() const { return state_->firstRows; }

const FileTable& CsvDatastore::table() const { return state_->table; }

std::int64_t CsvDatastore::numPartitions() const { return state_->ends.back(); }

const std::string& CsvDatastore::fingerprint() const { return state_->fingerprint; }

std::unique_ptr<ChunkReader> CsvDatastore::openPartition(
    std::int64_t partition, const std::vector<std::string>& columns,
    const CancellationToken& cancellation) const {
  const std::size_t file = fileNumber(partition);
  CsvIndex& index = state_->indexes.at(file);
  const std::int64_t first = state_->ends[file] - index.numRanges();
  const ByteRange range = index.records(partition - first, cancellation);
  return std::make_unique<CsvReader>(table().files[file], range, partition, schema(), columns,
                                     cancellation);
}

std::size_t CsvDatastore::fileNumber(std::int64_t partition) const {
  assert(partition >= 0 && partition < numPartitions());
  return static_cast<std::size_t>(std::ranges::upper_bound(state_->ends, partition) -
                                  state_->ends.begin());
}

/// A block as it is read, as it is split, and the places of its fields; then its columns.
std::int64_t CsvDatastore::estimateBytes(std::int64_t partition,
                                         const std::vector<std::string>& columns) const {
  return 3 * kCsvBlockBytes + Datastore::estimateBytes(partition, columns);
}

std::shared_ptr<const Datastore> CsvDatastore::cutFiner(std::int64_t count) const {
  assert(count > numPartitions());
  std::int64_t bytes = 0;
  for (const SourceFile& file : table().files) {
    bytes += file.bytes;
  }
  return std::make_shared<CsvDatastore>(table(), std::max<std::int64_t>(bytes / count, 1));
}

std::unique_ptr<Datastore> CsvDatastore::copy() const {
  return std::make_unique<CsvDatastore>(*this);
}

std::string CsvDatastore::describe() const {
  ByteWriter bytes;
  bytes.text(kCsvFormat);
  writeTable(bytes, table());
  bytes.number(state_->rangeBytes);
  return bytes.take();
}

std::shared_ptr<const FileDatastore> CsvDatastore::openOthers(
    const std::vector<std::string>& paths) const {
  return std::make_shared<CsvDatastore>(paths, std::vector<TypeOverride>{}, state_->rangeBytes);
}

std::shared_ptr<const FileDatastore> CsvDatastore::withFiles(std::string name,
                                                             const FileDatastore& others,
                                                             std::span<const FileOf> files) const {
  FileTable table{std::move(name), {}, others.schema()};
  for (ColumnInfo& column : table.schema) {
    const auto before = std::ranges::find(schema(), column.name, &ColumnInfo::name);
    if (before != schema().end()) {
      column = *before;
    }
  }
  for (const FileOf& each : files) {
    table.files.push_back(each.source->table().files[each.file]);
  }
  return std::make_shared<CsvDatastore>(std::move(table), state_->rangeBytes);
}

std::shared_ptr<const Datastore> openDescribedCsv(ByteReader& bytes) {
  FileTable table = readTable(bytes);
  const auto isUnknown = [](const ColumnInfo& column) { return !column.isReadable(); };
  const auto rangeBytes = bytes.number<std::int64_t>();
  if (std::ranges::any_of(table.schema, isUnknown) || rangeBytes < 1) {
    bytes.refuse();
  }
  return std::make_shared<CsvDatastore>(std::move(table), rangeBytes);
}

std::unique_ptr<Datastore> openCsv(const std::vector<std::string>& paths,
                                   const std::vector<TypeOverride>& types) {
  return std::make_unique<CsvDatastore>(paths, types);
}

}  // namespace kv::runtime

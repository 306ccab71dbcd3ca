// Partitions are byte ranges of each file, whose number follows from the sizes of the files alone.
// Where the records of a range begin is found when the range is opened.

#include "source/csv/CsvDatastore.h"

#include <algorithm>
#include <cassert>
#include <deque>
#include <utility>

#include "kv/errors/StepError.h"
#include "source/Fingerprint.h"
#include "source/csv/CsvReader.h"
#include "source/csv/CsvSchema.h"
#include "source/csv/MomentPattern.h"

namespace kv::runtime {

namespace {

/// As many as fit on a screen next to other things.
constexpr std::int64_t kFirstRows = 5;

/// A table from a saved file has the fingerprint of the saved table.
std::string fingerprintOf(const CsvTable& csv, std::int64_t partitions) {
  const FileTable& table = csv.files;
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
  if (csv.format != usualFormat()) {
    ByteWriter bytes;
    writeFormat(bytes, csv.format);
    print.add(bytes.take());
  }
  return print.digits();
}

/// Moves the patterns of moments, as in `datetime(%d.%m.%Y)`, from the types to the format.
/// Errors: "KALVEX:datastore:BadPattern".
std::vector<TypeOverride> takePatterns(std::vector<TypeOverride> types, CsvFormat& format) {
  constexpr std::string_view kBegin = "datetime(";
  for (TypeOverride& wanted : types) {
    if (!wanted.type.starts_with(kBegin) || !wanted.type.ends_with(')')) {
      continue;
    }
    std::string pattern = wanted.type.substr(kBegin.size(), wanted.type.size() - kBegin.size() - 1);
    if (const auto problem = MomentPattern::problemOf(pattern)) {
      errors::raiseStep("KALVEX:datastore:BadPattern", {wanted.column, pattern, *problem});
    }
    format.patterns[wanted.column] = std::move(pattern);
    wanted.type = elementTypeName(ElementType::DateTime);
  }
  return types;
}

CsvTable tableIn(const std::vector<std::string>& paths, const std::vector<TypeOverride>& types,
                 CsvFormat format) {
  FileTable table = lookAtFiles(paths, {".csv"});
  if (format.separator == '\0') {
    format.separator = detectSeparator(table.files.front());
  }
  const std::vector<TypeOverride> plainTypes = takePatterns(types, format);
  table.schema = readCsvSchema(table.files, plainTypes, format);
  return {std::move(table), std::move(format)};
}

}  // namespace

struct CsvDatastore::State {
  State(CsvTable described, std::int64_t bytes) : table(std::move(described)), rangeBytes(bytes) {
    for (const SourceFile& file : table.files.files) {
      indexes.emplace_back(CsvFile{file, table.format}, rangeBytes);
      ends.push_back((ends.empty() ? 0 : ends.back()) + indexes.back().numRanges());
    }
    fingerprint = fingerprintOf(table, ends.back());
  }

  const CsvTable table;
  const std::int64_t rangeBytes;
  std::deque<CsvIndex> indexes;    ///< one for each file
  std::vector<std::int64_t> ends;  ///< of each file: the partition after its last one
  std::string fingerprint;
  Chunk firstRows{};
};

CsvDatastore::CsvDatastore(const std::vector<std::string>& paths,
                           const std::vector<TypeOverride>& types, const CsvFormat& format,
                           std::int64_t rangeBytes)
    : CsvDatastore(tableIn(paths, types, format), rangeBytes) {
  state_->firstRows =
      firstCsvRows({table().files.front(), state_->table.format}, schema(), kFirstRows);
}

CsvDatastore::CsvDatastore(CsvTable table, std::int64_t rangeBytes)
    : state_(std::make_shared<State>(std::move(table), rangeBytes)) {}

const Chunk& CsvDatastore::firstRows() const { return state_->firstRows; }

const FileTable& CsvDatastore::table() const { return state_->table.files; }

const CsvFormat& CsvDatastore::format() const { return state_->table.format; }

std::int64_t CsvDatastore::numPartitions() const { return state_->ends.back(); }

const std::string& CsvDatastore::fingerprint() const { return state_->fingerprint; }

std::unique_ptr<ChunkReader> CsvDatastore::openPartition(
    std::int64_t partition, const std::vector<std::string>& columns,
    const CancellationToken& cancellation) const {
  const std::size_t file = fileNumber(partition);
  CsvIndex& index = state_->indexes.at(file);
  const std::int64_t first = state_->ends[file] - index.numRanges();
  const ByteRange range = index.records(partition - first, cancellation);
  return std::make_unique<CsvReader>(CsvFile{table().files[file], format()}, range, partition,
                                     schema(), columns, cancellation);
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
  return std::make_shared<CsvDatastore>(state_->table, std::max<std::int64_t>(bytes / count, 1));
}

std::unique_ptr<Datastore> CsvDatastore::copy() const {
  return std::make_unique<CsvDatastore>(*this);
}

std::string CsvDatastore::describe() const {
  ByteWriter bytes;
  bytes.text(kCsvFormat);
  writeTable(bytes, table());
  bytes.number(state_->rangeBytes);
  writeFormat(bytes, format());
  return bytes.take();
}

std::shared_ptr<const FileDatastore> CsvDatastore::openOthers(
    const std::vector<std::string>& paths) const {
  return std::make_shared<CsvDatastore>(paths, std::vector<TypeOverride>{}, format(),
                                        state_->rangeBytes);
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
  return std::make_shared<CsvDatastore>(CsvTable{std::move(table), format()}, state_->rangeBytes);
}

std::shared_ptr<const Datastore> openDescribedCsv(ByteReader& bytes) {
  FileTable table = readTable(bytes);
  const auto isUnknown = [](const ColumnInfo& column) { return !column.isReadable(); };
  const auto rangeBytes = bytes.number<std::int64_t>();
  if (std::ranges::any_of(table.schema, isUnknown) || rangeBytes < 1) {
    bytes.refuse();
  }
  return std::make_shared<CsvDatastore>(CsvTable{std::move(table), readFormat(bytes)}, rangeBytes);
}

std::unique_ptr<Datastore> openCsv(const std::vector<std::string>& paths,
                                   const std::vector<TypeOverride>& types,
                                   const CsvFormat& format) {
  return std::make_unique<CsvDatastore>(paths, types, format);
}

}  // namespace kv::runtime

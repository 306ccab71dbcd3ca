// Partitions are byte ranges of each file, whose number follows from the sizes of the files alone.
// Where the records of a range begin is found when the range is opened.

#include "source/csv/CsvDatastore.h"

#include <algorithm>
#include <cassert>
#include <deque>
#include <iterator>
#include <utility>

#include "kv/errors/StepError.h"
#include "source/Fingerprint.h"
#include "source/csv/CsvReader.h"
#include "source/csv/CsvSchema.h"
#include "source/csv/MomentPattern.h"

namespace kv::runtime {

namespace {

/// What a library that uncompresses may keep.
constexpr std::int64_t kUnpackingBytes = 8 << 20;

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
  if (csv.format != usualFormat() || !csv.compressions.empty()) {
    ByteWriter bytes;
    writeFormat(bytes, csv);
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

/// None if no file is compressed.
std::vector<Compression> unlessAllPlain(std::vector<Compression> compressions) {
  const bool isAny =
      std::ranges::any_of(compressions, [](Compression each) { return each != Compression::None; });
  return isAny ? compressions : std::vector<Compression>{};
}

CsvTable tableIn(const std::vector<std::string>& paths, const std::vector<TypeOverride>& types,
                 const CsvFormat& format) {
  CsvTable table{lookAtFiles(paths, {".csv"}), format};
  std::ranges::transform(table.files.files, std::back_inserter(table.compressions), compressionOf);
  table.compressions = unlessAllPlain(std::move(table.compressions));
  if (format.separator == '\0') {
    table.format.separator = detectSeparator(table.at(0));
  }
  const std::vector<TypeOverride> plainTypes = takePatterns(types, table.format);
  std::vector<CsvFile> files;
  for (std::size_t i = 0; i < table.files.files.size(); ++i) {
    files.push_back(table.at(i));
  }
  table.files.schema = readCsvSchema(files, plainTypes);
  return table;
}

}  // namespace

struct CsvDatastore::State {
  State(CsvTable described, std::int64_t bytes) : table(std::move(described)), rangeBytes(bytes) {
    for (std::size_t file = 0; file < table.files.files.size(); ++file) {
      indexes.emplace_back(table.at(file), rangeBytes);
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
  state_->firstRows = firstCsvRows(state_->table.at(0), schema(), kFirstRows);
}

CsvDatastore::CsvDatastore(CsvTable table, std::int64_t rangeBytes)
    : state_(std::make_shared<State>(std::move(table), rangeBytes)) {}

const Chunk& CsvDatastore::firstRows() const { return state_->firstRows; }

const FileTable& CsvDatastore::table() const { return state_->table.files; }

const CsvTable& CsvDatastore::csv() const { return state_->table; }

std::int64_t CsvDatastore::numPartitions() const { return state_->ends.back(); }

const std::string& CsvDatastore::fingerprint() const { return state_->fingerprint; }

std::unique_ptr<ChunkReader> CsvDatastore::openPartition(
    std::int64_t partition, const std::vector<std::string>& columns,
    const CancellationToken& cancellation) const {
  const std::size_t file = fileNumber(partition);
  CsvIndex& index = state_->indexes.at(file);
  const std::int64_t first = state_->ends[file] - index.numRanges();
  const ByteRange range = index.records(partition - first, cancellation);
  return std::make_unique<CsvReader>(state_->table.at(file), range, partition, schema(), columns,
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
  const std::int64_t library = csv().compressions.empty() ? 0 : kUnpackingBytes;
  return library + 3 * kCsvBlockBytes + Datastore::estimateBytes(partition, columns);
}

std::shared_ptr<const Datastore> CsvDatastore::cutFiner(std::int64_t count) const {
  assert(count > numPartitions());
  std::int64_t bytes = 0;  // of files that can be cut
  for (std::size_t file = 0; file < table().files.size(); ++file) {
    bytes += csv().at(file).isCompressed() ? 0 : table().files[file].bytes;
  }
  if (bytes == 0 && !csv().compressions.empty()) {
    return nullptr;
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
  writeFormat(bytes, csv());
  return bytes.take();
}

std::shared_ptr<const FileDatastore> CsvDatastore::openOthers(
    const std::vector<std::string>& paths) const {
  return std::make_shared<CsvDatastore>(paths, std::vector<TypeOverride>{}, csv().format,
                                        state_->rangeBytes);
}

std::shared_ptr<const FileDatastore> CsvDatastore::withFiles(std::string name,
                                                             const FileDatastore& others,
                                                             std::span<const FileOf> files) const {
  assert(dynamic_cast<const CsvDatastore*>(&others) != nullptr);
  FileTable table{std::move(name), {}, others.schema()};
  for (ColumnInfo& column : table.schema) {
    const auto before = std::ranges::find(schema(), column.name, &ColumnInfo::name);
    if (before != schema().end()) {
      column = *before;
    }
  }
  CsvTable csvTable{std::move(table), csv().format};
  for (const FileOf& each : files) {
    const CsvFile file = dynamic_cast<const CsvDatastore&>(*each.source).csv().at(each.file);
    csvTable.files.files.push_back(file.file);
    csvTable.compressions.push_back(file.compression);
  }
  csvTable.compressions = unlessAllPlain(std::move(csvTable.compressions));
  return std::make_shared<CsvDatastore>(std::move(csvTable), state_->rangeBytes);
}

std::shared_ptr<const Datastore> openDescribedCsv(ByteReader& bytes) {
  FileTable table = readTable(bytes);
  const auto isUnknown = [](const ColumnInfo& column) { return !column.isReadable(); };
  const auto rangeBytes = bytes.number<std::int64_t>();
  if (std::ranges::any_of(table.schema, isUnknown) || rangeBytes < 1) {
    bytes.refuse();
  }
  return std::make_shared<CsvDatastore>(readFormat(bytes, std::move(table)), rangeBytes);
}

std::unique_ptr<Datastore> openCsv(const std::vector<std::string>& paths,
                                   const std::vector<TypeOverride>& types,
                                   const CsvFormat& format) {
  return std::make_unique<CsvDatastore>(paths, types, format);
}

}  // namespace kv::runtime

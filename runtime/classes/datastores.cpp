// Datastores as the core sees them: objects of a host class whose C++ part is a source. Besides
// the methods that the core calls there are functions by which front ends open, describe and
// combine sources.

#include <algorithm>
#include <iterator>
#include <optional>
#include <vector>

#include "classes/DatastoreValue.h"
#include "classes/classes.h"
#include "classes/definitionHelpers.h"
#include "classes/sessionValues.h"
#include "driver/failures.h"
#include "kv/host/errors.h"
#include "kv/runtime/csv.h"
#include "kv/runtime/datastoreObject.h"
#include "kv/runtime/memory.h"
#include "persistence/MovedTables.h"
#include "persistence/csvDescription.h"
#include "persistence/savedSource.h"
#include "source/BlockDatastore.h"
#include "source/csv/CsvDatastore.h"
#include "source/ipc/ipcBlocks.h"
#include "source/memory/ArrayDatastore.h"
#include "source/parquet/parquetBlocks.h"
#include "values/chunkValues.h"
#include "values/hostNames.h"
#include "values/placesValues.h"

namespace kv::runtime {

namespace {

using host::Call;
using host::Value;

using Open = std::unique_ptr<Datastore> (*)(const FileRequest& request);

/// How CSV is written, by a call's inputs (separator, whether there is a header, markers of missing
/// values), from input `first` on; each may be left out, and a marker that isn't a text is none.
CsvFormat formatFor(const Call& call, int first) {
  CsvFormat format;
  if (call.nrhs > first) {
    format.separator = separatorNamed(host::toText(call.in(first)));
  }
  if (call.nrhs > first + 1) {
    format.hasHeader = host::toLogical(call.in(first + 1));
  }
  if (call.nrhs > first + 2 && Torvane::String::isString(call.in(first + 2))) {
    format.missing = host::toTexts(call.in(first + 2));
  }
  return format;
}

/// Opens the files of a call (paths, names of columns, names of their types, and how CSV is
/// written).
std::unique_ptr<Datastore> openFor(const Call& call, int first, Open open) {
  const auto textsOf = [&](int index) {
    return call.nrhs > index ? host::toTexts(call.in(index)) : std::vector<std::string>{};
  };
  const std::vector<std::string> paths = textsOf(first);
  if (paths.empty()) {
    host::raiseInvalidType("Input", "at least one path", call.in(first));
  }
  const std::vector<std::string> columns = textsOf(first + 1);
  const std::vector<std::string> types = textsOf(first + 2);
  if (columns.size() != types.size()) {
    host::raise("KALVEX:NotEnoughInputs");
  }
  std::vector<TypeOverride> overrides;
  for (std::size_t i = 0; i < columns.size(); ++i) {
    overrides.push_back({columns[i], types[i]});
  }
  return open({paths, std::move(overrides), formatFor(call, first + 3)});
}

std::unique_ptr<Datastore> openCsvFiles(const FileRequest& request) {
  return openCsv(request.paths, request.types, request.csv);
}

template <const BlockFormat& format>
std::unique_ptr<Datastore> openBlockFiles(const FileRequest& request) {
  return std::make_unique<BlockDatastore>(format, request.paths, request.types);
}

/// The constructor of a class of files; without inputs, the object has no source.
template <Open open>
void construct(const Call& call) {
  if (call.nrhs > 1) {
    host::setNativeValue(call.in(0), std::make_unique<DatastoreValue>(openFor(call, 1, open)));
  }
}

/// ArrayDatastore(value, sizes of its partitions): an array or a table of the host.
void constructArrays(const Call& call) {
  if (call.nrhs == 1) {
    return;
  }
  CutRequest request;
  if (call.nrhs > 2) {
    const kxArray* sizes = call.in(2);
    if (kxGetClassID(sizes) != kxDOUBLE_CLASS) {
      host::raiseInvalidType("Input", "double", sizes);
    }
    for (std::size_t i = 0; i < kxGetNumberOfElements(sizes); ++i) {
      const Value size = host::makeDouble(static_cast<const double*>(kxGetData(sizes))[i]);
      request.sizes.push_back(static_cast<std::int64_t>(host::toCount(size.get(), kMaxPositions)));
    }
  }
  host::setNativeValue(call.in(0),
                       std::make_unique<DatastoreValue>(openChunk(toChunk(call.in(1)), request)));
}

/// kv.datastore(paths, names of columns, names of their types, separator, whether there is a
/// header, markers of missing values): the files in the format they have.
void openDatastore(const Call& call) {
  call.expect(1, 1, 6);
  call.out(0, datastoreObject(openFor(call, 0, openFiles)));
}

Value columnTexts(const Call& call, std::string (*textOf)(const ColumnInfo&)) {
  std::vector<std::string> texts;
  for (const ColumnInfo& column : datastoreOf(call.in(0))->schema()) {
    texts.push_back(textOf(column));
  }
  return host::makeStringColumn(texts);
}

void namesOfColumns(const Call& call) {
  call.out(0, columnTexts(call, [](const ColumnInfo& column) { return column.name; }));
}

void typesOfColumns(const Call& call) {
  call.out(0, columnTexts(call, [](const ColumnInfo& column) {
             return std::string(elementTypeName(column.type));
           }));
}

/// Types in the files, where they are other ones; empty texts elsewhere.
void fileTypesOfColumns(const Call& call) {
  call.out(0, columnTexts(call, [](const ColumnInfo& column) { return column.fileType; }));
}

void numPartitions(const Call& call) {
  call.out(0, host::makeDouble(static_cast<double>(datastoreOf(call.in(0))->numPartitions())));
}

/// The number of rows; empty if it isn't known without reading them.
void numRows(const Call& call) {
  const Datastore& source = *datastoreOf(call.in(0));
  std::int64_t rows = 0;
  for (std::int64_t partition = 0; partition < source.numPartitions(); ++partition) {
    const std::optional<std::int64_t> known = source.knownRows(partition);
    if (!known) {
      call.out(0, host::makeEmptyDouble());
      return;
    }
    rows += *known;
  }
  call.out(0, host::makeDouble(static_cast<double>(rows)));
}

/// The metadata of a materialised value that has a row for each row of a source, in their order.
Value placesOfAll(std::shared_ptr<const RowCut> cut, std::string origin) {
  RowPlaces places{.firstRow = {0}, .origin = std::move(origin)};
  for (const std::int64_t rows : cut->partitionRows) {
    places.firstRow.push_back(places.firstRow.back() + rows);
  }
  places.cut = std::move(cut);
  return toMetadata(places);
}

/// kv.rowPlaces(datastore): that metadata; empty if the rows of its partitions aren't known.
void rowPlaces(const Call& call) {
  call.expect(1, 1, 1);
  const Datastore& source = *datastoreOf(call.in(0));
  auto cut = std::make_shared<RowCut>();
  cut->source = source.rowSpace();
  for (std::int64_t partition = 0; partition < source.numPartitions(); ++partition) {
    const std::optional<std::int64_t> rows = source.knownRows(partition);
    if (!rows) {
      call.out(0, host::makeEmptyDouble());
      return;
    }
    cut->partitionRows.push_back(*rows);
  }
  call.out(0, placesOfAll(std::move(cut), source.displayName()));
}

/// kv.readPlaces(): that metadata of the source that the last evaluation read, with `origin` for
/// messages; empty unless it read one.
void readPlaces(const Call& call) {
  call.expect(1, 1, 1);
  const std::shared_ptr<const RowCut>& cut = runtimeState().lastEvaluation.cut;
  call.out(0,
           cut == nullptr ? host::makeEmptyDouble() : placesOfAll(cut, host::toText(call.in(0))));
}

/// kv.firstRows(datastore or numbers): a datastore of some of the first rows, if they are in
/// memory, as those are that were read when a file was opened; otherwise empty. Opens no file.
void firstRows(const Call& call) {
  call.expect(1, 1, 1);
  constexpr std::int64_t kMostRows = 5;
  const kxArray* given = call.in(0);
  std::optional<Chunk> rows;
  if (kxIsNumeric(given) || kxGetClassID(given) == kxLOGICAL_CLASS) {
    rows = openChunk(toChunk(given))->preview(kMostRows);
  } else if (kcos::omIsKCOS(given) && kxIsA(given, kDatastore)) {
    const std::shared_ptr<const Datastore> source = datastoreOf(given);
    if (const auto* csv = dynamic_cast<const CsvDatastore*>(source.get())) {
      rows = csv->firstRows();
    } else if (source->asArrays() != nullptr) {
      rows = source->preview(kMostRows);
    }
  }
  const bool isKnown = rows.has_value() && rows->rows() > 0;
  call.out(0, isKnown ? datastoreObject(openChunk(*rows)) : host::makeEmptyDouble());
}

void formatNoteOf(const Call& call) {
  call.out(0, host::makeChars(datastoreOf(call.in(0))->formatNote()));
}

/// What arrays of as many rows have in common if the rows are positions; empty otherwise.
void rowSpaceOf(const Call& call) {
  const std::shared_ptr<const Datastore> source = datastoreOf(call.in(0));
  call.out(0, host::makeChars(source->asArrays() == nullptr ? "" : source->rowSpace()));
}

void displayName(const Call& call) {
  call.out(0, host::makeChars(datastoreOf(call.in(0))->displayName()));
}

/// The files that are read, with their paths in the file system, whatever the source is called.
void sourceFiles(const Call& call) {
  const std::shared_ptr<const Datastore> source = datastoreOf(call.in(0));
  std::vector<std::string> paths = source->files();
  if (const auto* files = dynamic_cast<const FileDatastore*>(source.get())) {
    paths.clear();
    std::ranges::transform(files->table().files, std::back_inserter(paths),
                           &SourceFile::absolutePath);
  }
  call.out(0, host::makeStringColumn(paths));
}

/// copy(datastore): sources are immutable, so the copy shares the source.
void copyDatastore(const Call& call) { call.out(0, datastoreObject(datastoreOf(call.in(0)))); }

/// The source of an object; null for a datastore without one, which is saved without one.
template <class Source>
const Source* sourceIn(const kxArray* object) {
  const auto* value = dynamic_cast<const DatastoreValue*>(host::getNativeValue(object));
  return value == nullptr ? nullptr : dynamic_cast<const Source*>(value->datastore.get());
}

Value savedCsv(const kxArray* object) {
  const auto* csv = sourceIn<CsvDatastore>(object);
  return csv == nullptr ? Value() : describeCsv(csv->csv());
}

Value savedBlocks(const kxArray* object) {
  const auto* files = sourceIn<BlockDatastore>(object);
  return files == nullptr ? Value() : savedDescription(files->describeForSave());
}

void restore(const kxArray* object, std::shared_ptr<const FileDatastore> source) {
  if (MovedTables* const moved = runtimeState().movedTables) {
    source = moved->moved(source);
  }
  host::setNativeValue(object, std::make_unique<DatastoreValue>(std::move(source)));
}

/// Of arrays in memory the rows aren't saved, and nothing else would lead to them; others are
/// described.
Value savedArrays(const kxArray* object) {
  const auto* arrays = sourceIn<ArrayDatastore>(object);
  if (arrays == nullptr) {
    return Value();
  }
  if (!arrays->isDescribed()) {
    host::raise("KALVEX:datastore:NotSaveable", {arrays->displayName()});
  }
  return savedDescription(arrays->describeForSave());
}

void restoreArrays(const kxArray* object, const kxArray* saved) {
  if (saved == nullptr) {
    return;
  }
  std::shared_ptr<const Datastore> source = openSaved(saved);
  if (source->asArrays() == nullptr || !source->asArrays()->isDescribed()) {
    host::raise("KALVEX:datastore:BadDescription", {"arrays that aren't in memory are expected"});
  }
  host::setNativeValue(object, std::make_unique<DatastoreValue>(std::move(source)));
}

void restoreCsv(const kxArray* object, const kxArray* saved) {
  if (saved != nullptr) {
    restore(object, std::make_shared<CsvDatastore>(csvFromDescription(saved)));
  }
}

template <const BlockFormat& format>
void restoreBlocks(const kxArray* object, const kxArray* saved) {
  if (saved == nullptr) {
    return;
  }
  auto source = std::dynamic_pointer_cast<const BlockDatastore>(openSaved(saved));
  if (source == nullptr || &source->format() != &format) {
    host::raise("KALVEX:datastore:BadDescription",
                {std::string(format.shown) + " files are expected"});
  }
  restore(object, std::move(source));
}

}  // namespace

Value datastoreObject(std::shared_ptr<const Datastore> source) {
  const auto* blocks = dynamic_cast<const BlockDatastore*>(source.get());
  Value object = source->asArrays() != nullptr          ? host::call(kArrayDatastore)
                 : blocks == nullptr                    ? host::call(kCsvDatastore)
                 : &blocks->format() == &kParquetBlocks ? host::call(kParquetDatastore)
                                                        : host::call(kIpcDatastore);
  host::setNativeValue(object.get(), std::make_unique<DatastoreValue>(std::move(source)));
  return object;
}

void defineDatastores(host::Session& session) {
  define(session,
         {.name = kDatastore,
          .properties = {computed("ColumnNames", namesOfColumns),
                         computed("ColumnTypes", typesOfColumns),
                         computed("ColumnFileTypes", fileTypesOfColumns),
                         computed("NumPartitions", numPartitions), computed("NumRows", numRows),
                         computed("DisplayName", displayName), computed("FormatNote", formatNoteOf),
                         computed("Files", sourceFiles), computed("RowSpace", rowSpaceOf)},
          .methods = {method("copy", copyDatastore, 1, 1)}});
  define(session, {.name = kCsvDatastore,
                   .superclasses = {kDatastore},
                   .constructor = constructor(construct<openCsvFiles>, 1, 7),
                   .savedForm = host::SavedForm{savedCsv, restoreCsv}});
  define(session, {.name = kParquetDatastore,
                   .superclasses = {kDatastore},
                   .constructor = constructor(construct<openBlockFiles<kParquetBlocks>>, 1, 4),
                   .savedForm = host::SavedForm{savedBlocks, restoreBlocks<kParquetBlocks>}});
  define(session, {.name = kIpcDatastore,
                   .superclasses = {kDatastore},
                   .constructor = constructor(construct<openBlockFiles<kIpcBlocks>>, 1, 4),
                   .savedForm = host::SavedForm{savedBlocks, restoreBlocks<kIpcBlocks>}});
  define(session, {.name = kArrayDatastore,
                   .superclasses = {kDatastore},
                   .constructor = constructor(constructArrays, 1, 3),
                   .savedForm = host::SavedForm{savedArrays, restoreArrays}});
  session.defineFunction("kv.datastore", openDatastore);
  session.defineFunction("kv.rowPlaces", rowPlaces);
  session.defineFunction("kv.readPlaces", readPlaces);
  session.defineFunction("kv.firstRows", firstRows);
  session.defineFunction("kalvex.io.datastore.internal.shim.isDatastore", [](const Call& call) {
    call.expect(1, 1, 1);
    call.out(0, host::makeLogical(kxIsScalar(call.in(0)) && kxIsA(call.in(0), kDatastore)));
  });
}

}  // namespace kv::runtime

#include <vector>

#include "classes/DatastoreValue.h"
#include "classes/classes.h"
#include "classes/definitionHelpers.h"
#include "classes/sessionValues.h"
#include "driver/failures.h"
#include "kv/host/errors.h"
#include "kv/runtime/csv.h"
#include "persistence/MovedTables.h"
#include "persistence/csvDescription.h"
#include "values/hostNames.h"

namespace kv::runtime {

namespace {

using host::Call;
using host::Value;

/// CsvDatastore(paths, names of columns, names of their types)
void constructCsv(const Call& call) {
  const std::vector<std::string> paths = host::toTexts(call.in(1));
  if (paths.empty()) {
    host::raiseInvalidType("Input", "at least one path", call.in(1));
  }
  const std::vector<std::string> columns =
      call.nrhs > 2 ? host::toTexts(call.in(2)) : std::vector<std::string>{};
  const std::vector<std::string> types =
      call.nrhs > 3 ? host::toTexts(call.in(3)) : std::vector<std::string>{};
  if (columns.size() != types.size()) {
    host::raise("KALVEX:NotEnoughInputs");
  }
  std::vector<TypeOverride> overrides;
  for (std::size_t i = 0; i < columns.size(); ++i) {
    overrides.push_back({columns[i], types[i]});
  }
  host::setNativeValue(call.in(0), std::make_unique<DatastoreValue>(openCsv(paths, overrides)));
}

Value columnTexts(const Call& call, std::string (*textOf)(const ColumnInfo&)) {
  std::vector<std::string> texts;
  for (const ColumnInfo& column : datastoreOf(call.in(0))->schema()) {
    texts.push_back(textOf(column));
  }
  return host::makeStringColumn(texts);
}

void columnNames(const Call& call) {
  call.out(0, columnTexts(call, [](const ColumnInfo& column) { return column.name; }));
}

void columnTypes(const Call& call) {
  call.out(0, columnTexts(call, [](const ColumnInfo& column) {
             return std::string(elementTypeName(column.type));
           }));
}

void numPartitions(const Call& call) {
  call.out(0, host::makeDouble(static_cast<double>(datastoreOf(call.in(0))->numPartitions())));
}

void displayName(const Call& call) {
  call.out(0, host::makeChars(datastoreOf(call.in(0))->displayName()));
}

/// The files that are read, with their paths in the file system, whatever the source is called.
void sourceFiles(const Call& call) {
  std::vector<std::string> paths;
  if (const auto* csv = dynamic_cast<const CsvDatastore*>(datastoreOf(call.in(0)).get())) {
    for (const SourceFile& file : csv->table().files) {
      paths.push_back(file.absolutePath);
    }
  }
  call.out(0, host::makeStringColumn(paths));
}

/// copy(datastore): sources are immutable, so the copy shares the source.
void copyDatastore(const Call& call) {
  Value copied = host::call(kCsvDatastore, {});
  host::setNativeValue(copied.get(), std::make_unique<DatastoreValue>(datastoreOf(call.in(0))));
  call.out(0, std::move(copied));
}

/// A datastore without a source, as classes make them, is saved without one.
Value savedCsv(const kxArray* object) {
  const auto* value = dynamic_cast<const DatastoreValue*>(host::getNativeValue(object));
  const auto* csv =
      value == nullptr ? nullptr : dynamic_cast<const CsvDatastore*>(value->datastore.get());
  return csv == nullptr ? Value() : describeCsv(*csv);
}

void restoreCsv(const kxArray* object, const kxArray* saved) {
  if (saved == nullptr) {
    return;
  }
  CsvDatastore::Table table = csvFromDescription(saved);
  if (MovedTables* const moved = runtimeState().movedTables) {
    table = moved->moved(table);
  }
  host::setNativeValue(
      object, std::make_unique<DatastoreValue>(std::make_unique<CsvDatastore>(std::move(table))));
}

}  // namespace

void defineDatastores(host::Session& session) {
  define(session,
         {.name = kDatastore,
          .properties = {computed("ColumnNames", columnNames), computed("ColumnTypes", columnTypes),
                         computed("NumPartitions", numPartitions),
                         computed("DisplayName", displayName), computed("Files", sourceFiles)},
          .methods = {method("copy", copyDatastore, 1, 1)}});
  define(session, {.name = kCsvDatastore,
                   .superclasses = {kDatastore},
                   .constructor = constructor(
                       [](const Call& call) {
                         if (call.nrhs > 1) {
                           constructCsv(call);
                         }
                       },
                       1, 4),
                   .savedForm = host::SavedForm{savedCsv, restoreCsv}});
  session.defineFunction("kalvex.io.datastore.internal.shim.isDatastore", [](const Call& call) {
    call.expect(1, 1, 1);
    call.out(0, host::makeLogical(kxIsScalar(call.in(0)) && kxIsA(call.in(0), kDatastore)));
  });
}

}  // namespace kv::runtime

#include <utility>

#include "handles.h"
#include "kv/host/session.h"
#include "kv/runtime/Column.h"
#include "kv/runtime/runtime.h"
#include "kv/runtime/threads.h"

namespace kv {

namespace {

using runtime::ElementType;

/// `opener`: a class of datastores, or the function that recognises the format.
host::Value openDatastore(kcos::NameRef opener, const std::vector<std::string>& paths,
                          const ReadOptions& options) {
  std::vector<std::string> columns;
  std::vector<std::string> types;
  for (const auto& [column, type] : options.types) {
    columns.push_back(column);
    types.push_back(type);
  }
  CallInputs inputs;
  inputs.give(host::makeStringColumn(paths));
  inputs.give(host::makeStringColumn(columns));
  inputs.give(host::makeStringColumn(types));
  if (!options.separator.empty() || !options.hasHeader || options.missing) {
    inputs.give(host::makeString(options.separator));
    inputs.give(host::makeLogical(options.hasHeader));
    inputs.give(options.missing ? host::makeStringColumn(*options.missing)
                                : host::makeEmptyDouble());
  }
  return host::call(opener, inputs.list());
}

std::vector<std::string> namesOf(const kxArray* datastore, kcos::NameRef property) {
  return host::toTexts(host::getProperty(datastore, property).get());
}

/// The number of rows, if it is known without reading them.
std::optional<std::int64_t> countOf(const kxArray* datastore) {
  const host::Value rows = host::getProperty(datastore, "NumRows");
  return kxIsEmpty(rows.get())
             ? std::nullopt
             : std::optional(static_cast<std::int64_t>(host::toDouble(rows.get())));
}

/// The rows of a datastore: positions, or those of its files, as they are read.
std::shared_ptr<const RowSpace> rowsOf(const kxArray* datastore) {
  const std::string name = host::toText(host::getProperty(datastore, "DisplayName").get());
  std::string key = host::toText(host::getProperty(datastore, "RowSpace").get());
  if (!key.empty()) {
    return std::make_shared<const RowSpace>(key, name, countOf(datastore));
  }
  constexpr kcos::NameRef kParts[] = {"Files", "ColumnNames", "ColumnTypes"};
  for (const kcos::NameRef property : kParts) {
    for (const std::string& text : namesOf(datastore, property)) {
      key += std::to_string(text.size()) + ':' + text;
    }
  }
  key += host::toText(host::getProperty(datastore, "FormatNote").get());
  auto rows = std::make_shared<RowSpace>(key, name, countOf(datastore));
  rows->setOfFiles();
  if (rows->count()) {
    rows->setPlaces(host::call("kv.rowPlaces", {datastore}));
  }
  return rows;
}

Table readBy(kcos::NameRef opener, const std::shared_ptr<Session::Impl>& session,
             const std::vector<std::string>& paths, const ReadOptions& options, Where where) {
  return publicCall(*session, where, [&] {
    const host::Value datastore = openDatastore(opener, paths, options);
    auto rows = host::call("createFromDatastoreBuiltin", {datastore.get()});
    return Table(
        std::make_shared<const Table::Handle>(session, std::move(rows), columnsOf(datastore.get()),
                                              rowsOf(datastore.get()), std::vector<Array>{}));
  });
}

}  // namespace

std::shared_ptr<const TableColumns> columnsOf(const kxArray* datastore) {
  std::vector<ElementType> types;
  for (const std::string& name : namesOf(datastore, "ColumnTypes")) {
    types.push_back(runtime::elementTypeNamed(name).value_or(ElementType::Unknown));
  }
  return std::make_shared<const TableColumns>(namesOf(datastore, "ColumnNames"), std::move(types),
                                              namesOf(datastore, "ColumnFileTypes"));
}

const int Session::kMaxThreads = runtime::kMaxThreads;

Session::Session() : impl_(translated([] { return std::make_shared<Impl>(); })) {}

Session::~Session() {
  impl_->streams.stopAll();
  std::unique_lock lease(impl_->mutex);
  impl_->idle.wait(lease, [&] { return impl_->paused == 0; });
  impl_->host.close();
}

Table Session::read(const std::vector<std::string>& paths, const ReadOptions& options,
                    Where where) {
  return readBy("kv.datastore", impl_, paths, options, where);
}

Table Session::read(const std::string& path, const ReadOptions& options, Where where) {
  return translated([&] { return read(std::vector<std::string>{path}, options, where); });
}

Table Session::readCsv(const std::vector<std::string>& paths, const ReadOptions& options,
                       Where where) {
  return readBy("kalvex.io.CsvDatastore", impl_, paths, options, where);
}

Table Session::readParquet(const std::vector<std::string>& paths, Where where) {
  return readBy("kalvex.io.ParquetDatastore", impl_, paths, {}, where);
}

Table Session::readIpc(const std::vector<std::string>& paths, Where where) {
  return readBy("kalvex.io.IpcDatastore", impl_, paths, {}, where);
}

Array Session::constant(const Operand& value) {
  if (const auto* array = std::get_if<Array>(&value.value())) {
    return *array;
  }
  return publicCall(*impl_, value.where(), [&] { return makeConstant(impl_, operandOf(value)); });
}

void Session::interrupt() noexcept { impl_->interrupts->add(); }

void interrupt() noexcept { runtime::requestInterrupt(); }

void Session::setThreads(int threads, Where where) {
  publicCall(*impl_, where, [&] { runtime::setThreads(threads); });
}

void Session::setMemoryLimit(std::int64_t bytes, Where where) {
  publicCall(*impl_, where, [&] { runtime::setMemoryLimit(bytes); });
}

void Session::setScratch(const std::string& folder, std::string_view limit, Where where) {
  publicCall(*impl_, where, [&] {
    const host::Value path = host::makeString(folder);
    const host::Value size = host::makeString(limit);
    host::callMany("kv.setScratch", 0, std::vector<const kxArray*>{path.get(), size.get()});
  });
}

void Session::setMemoryLimit(std::string_view limit, Where where) {
  publicCall(*impl_, where, [&] { runtime::setMemoryLimit(limit); });
}

}  // namespace kv

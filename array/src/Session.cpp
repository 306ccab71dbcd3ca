#include <utility>

#include "handles.h"
#include "kv/host/session.h"
#include "kv/runtime/Column.h"
#include "kv/runtime/runtime.h"

namespace kv {

namespace {

using runtime::ElementType;

host::Value openDatastore(const std::vector<std::string>& paths, const ReadOptions& options) {
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
  return host::call("kalvex.io.CsvDatastore", inputs.list());
}

std::vector<ElementType> readTypes(const kxArray* datastore) {
  std::vector<ElementType> types;
  for (const std::string& name : host::toTexts(host::getProperty(datastore, "ColumnTypes").get())) {
    types.push_back(runtime::elementTypeNamed(name).value());
  }
  return types;
}

}  // namespace

Session::Session() : impl_(translated([] { return std::make_shared<Impl>(); })) {}

Session::~Session() {
  const std::lock_guard lease(impl_->mutex);
  impl_->host.close();
}

Table Session::read(const std::vector<std::string>& paths, const ReadOptions& options,
                    Where where) {
  return publicCall(*impl_, where, [&] {
    const host::Value datastore = openDatastore(paths, options);
    auto names = host::toTexts(host::getProperty(datastore.get(), "ColumnNames").get());
    auto rows = host::call("createFromDatastoreBuiltin", {datastore.get()});
    auto columns =
        std::make_shared<const TableColumns>(std::move(names), readTypes(datastore.get()));
    return Table(std::make_shared<const Table::Handle>(impl_, std::move(rows), std::move(columns)));
  });
}

Table Session::read(const std::string& path, const ReadOptions& options, Where where) {
  return translated([&] { return read(std::vector<std::string>{path}, options, where); });
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

}  // namespace kv

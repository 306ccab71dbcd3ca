#include <string>
#include <utility>

#include "handles.h"
#include "kv/errors/shownText.h"

namespace kv {

TableColumns::TableColumns(std::vector<std::string> columnNames,
                           std::vector<runtime::ElementType> columnTypes,
                           std::vector<std::string> columnFileTypes)
    : names(std::move(columnNames)),
      types(std::move(columnTypes)),
      fileTypes(std::move(columnFileTypes)) {
  positions.reserve(names.size());
  for (std::size_t i = 0; i < names.size(); ++i) {
    positions.emplace(names[i], i);
  }
}

const std::vector<std::string>& Table::columns() const { return handle_->columns->names; }

std::vector<std::string> Table::columnTypes() const {
  std::vector<std::string> types;
  for (const runtime::ElementType type : handle_->columns->types) {
    types.emplace_back(runtime::elementTypeName(type));
  }
  return types;
}

Array Table::column(std::string_view name, Where where) const {
  const TableColumns& all = *handle_->columns;
  const auto line = [&] {  // made when it is needed: it allocates
    return StackFrame{where.file_name(), where.function_name(), static_cast<int>(where.line())};
  };
  const auto found = all.positions.find(name);
  if (found == all.positions.end()) {
    raiseError("KALVEX:array:UnknownColumn", {std::string(name), errors::shownNames(all.names)},
               {line()});
  }
  const runtime::ElementType type = all.types[found->second];
  if (type == runtime::ElementType::Unknown) {
    raiseError("KALVEX:datastore:UnsupportedColumn",
               {std::string(name), all.fileTypes[found->second]}, {line()});
  }
  const auto session = live(handle_->session);
  return publicCall(*session, where, [&] {
    CallInputs inputs;
    inputs.give(host::makeChars(":"));  // all rows
    inputs.give(host::makeChars(name));
    inputs.give(host::makeLogical(true));  // the content of the variable, not a table of it
    inputs.lend(handle_->value);
    return makeArray(session, host::call("subsrefTabularVar", inputs.list()), type,
                     RowTraits{.isColumn = true});
  });
}

Table Table::filter(const Array& keep, Where where) const {
  requireLogical(keep);
  const auto session = live(handle_->session);
  if (live(keep.handle().session) != session) {
    raiseTwoSessions();
  }
  return publicCall(*session, where, [&] {
    auto rows = host::call("filterslices", {keep.handle().value.get(), handle_->value.get()});
    return Table(std::make_shared<const Table::Handle>(session, std::move(rows), handle_->columns));
  });
}

}  // namespace kv

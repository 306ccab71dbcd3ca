// A table is one of two things: one array of rows, of which a column is taken by name when it is
// asked for, as for files; or a list of arrays with the same rows. In both cases names and types
// are known here, so that a wrong name is an error on the line that uses it, before it is recorded.

#include <algorithm>
#include <array>
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

std::shared_ptr<const std::string> TableColumns::sourceType(std::size_t column) const {
  return fileTypes[column].empty()
             ? nullptr
             : std::shared_ptr<const std::string>(shared_from_this(), &fileTypes[column]);
}

namespace {

/// The same array; columns skip missing values.
Array asColumn(const Array& array) {
  RowTraits traits = array.handle().traits;
  traits.isColumn = true;
  return withTraits(array, std::move(traits));
}

/// Replaces scalars by columns that have their value in each row of the others.
void repeatScalars(std::vector<Array>& arrays, const Where& where) {
  const auto isScalar = [](const Array& array) { return array.isScalar(); };
  const auto rows = std::ranges::find_if_not(arrays, isScalar);
  if (rows == arrays.end() || std::ranges::none_of(arrays, isScalar)) {
    return;
  }
  const Operand isMissing(kv::apply("ismissing", std::array{Operand(*rows, where)}, where), where);
  for (Array& array : arrays) {
    if (array.isScalar()) {
      const Operand value(array, where);
      array = kv::apply("where", std::array{isMissing, value, value}, where);
    }
  }
}

}  // namespace

const std::vector<std::string>& Table::columns() const { return handle_->columns->names; }

std::vector<std::string> Table::columnTypes() const {
  std::vector<std::string> types;
  for (const runtime::ElementType type : handle_->columns->types) {
    types.emplace_back(runtime::elementTypeName(type));
  }
  return types;
}

const std::vector<std::string>& Table::columnNotes() const { return handle_->columns->fileTypes; }

std::optional<std::int64_t> Table::rows() const {
  return handle_->rows != nullptr ? handle_->rows->count() : std::nullopt;
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
  if (handle_->value == nullptr) {
    return handle_->arrays[found->second];
  }
  const auto session = live(handle_->session);
  return recordingCall(*session, where, [&] {
    CallInputs inputs;
    inputs.give(host::makeChars(":"));  // all rows
    inputs.give(host::makeChars(name));
    inputs.give(host::makeLogical(true));  // the content of the variable, not a table of it
    inputs.lend(handle_->value);
    return makeArray(
        session, host::call("subsrefTabularVar", inputs.list()), type,
        RowTraits{.isColumn = true,
                  .rows = handle_->rows,
                  .made = keyOf(name, handle_->source + (handle_->rows ? handle_->rows->key() : 0)),
                  .sourceType = handle_->columns->sourceType(found->second)});
  });
}

Table Table::filter(const Array& keep, Where where) const {
  requireCondition(keep);
  const auto session = live(handle_->session);
  if (live(keep.handle().session) != session) {
    raiseTwoSessions();
  }
  if (handle_->value == nullptr) {
    std::vector<NamedArray> columns;
    for (std::size_t i = 0; i < handle_->arrays.size(); ++i) {
      columns.push_back({handle_->columns->names[i], kv::filter(handle_->arrays[i], keep, where)});
    }
    return tableOf(columns, where);
  }
  return publicCall(*session, where, [&] {
    const Array all = makeArray(session, matrix::sharedCopy(handle_->value.get()),
                                runtime::ElementType::Unknown, RowTraits{.rows = handle_->rows});
    RowTraits traits = traitsOfFiltered(all, keep, where);
    auto rows = host::call("filterslices", {keep.handle().value.get(), handle_->value.get()});
    return Table(std::make_shared<const Table::Handle>(session, std::move(rows), handle_->columns,
                                                       std::move(traits.rows), std::vector<Array>{},
                                                       handle_->source));
  });
}

Table tableOf(std::span<const NamedArray> columns, Where where) {
  std::vector<std::string> names;
  std::vector<runtime::ElementType> types;
  std::vector<std::string> fileTypes;
  std::vector<Array> arrays;
  for (const NamedArray& column : columns) {
    if (std::ranges::find(names, column.name) != names.end()) {
      raiseError("KALVEX:array:SameName", {column.name});
    }
    requireColumn("A column of a table", column.array);
    const auto& sourceType = column.array.handle().traits.sourceType;
    names.push_back(column.name);
    fileTypes.push_back(sourceType != nullptr ? *sourceType : "");
    arrays.push_back(column.array);
  }
  const auto session = sessionOf(arrays);
  repeatScalars(arrays, where);
  for (Array& array : arrays) {
    array = asColumn(array);
    types.push_back(array.handle().type);
  }
  requireSameRows(arrays, where);
  const auto known = std::ranges::find_if(
      arrays, [](const Array& array) { return array.handle().traits.rows != nullptr; });
  return translated([&] {
    return Table(std::make_shared<const Table::Handle>(
        session, nullptr,
        std::make_shared<const TableColumns>(std::move(names), std::move(types),
                                             std::move(fileTypes)),
        known == arrays.end() ? nullptr : known->handle().traits.rows, std::move(arrays)));
  });
}

Array countRows(const Array& array, Where where) {
  const Array isMissing = kv::apply("ismissing", std::array{Operand(array, where)}, where);
  const Array counts = kv::count(isMissing, where);  // of each column of an array
  return array.trailing().empty() ? counts
                                  : aggregate("min", counts, Reduction{.isWhole = true}, where);
}

void settle(const Array& array, Where where) {
  const auto& rows = array.handle().traits.rows;
  if (rows != nullptr && !rows->count()) {
    const Value count = countRows(array, where).gather(where);
    rows->setCount(std::get<Value::Integers>(count.data()).front());
    if (rows->isOfFiles()) {
      publicCall(*live(array.handle().session), where, [&] {
        host::Value places = host::call("kv.readPlaces", {host::makeString(rows->name()).get()});
        if (kxGetClassID(places.get()) == kxSTRUCT_CLASS) {
          rows->setPlaces(std::move(places));
        }
      });
    }
  }
}

}  // namespace kv

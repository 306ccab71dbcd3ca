#include "source/FileTable.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <set>

#include "kv/errors/StepError.h"
#include "kv/errors/shownText.h"
#include "source/PathExpansion.h"

namespace kv::runtime {

namespace {

using Names = std::vector<std::string>;

std::string firstDifference(const Names& names, const Names& expected) {
  if (names.size() != expected.size()) {
    return fmt::format("{} columns, not {}", names.size(), expected.size());
  }
  const auto [found, other] = std::ranges::mismatch(names, expected);
  return fmt::format("column {} is '{}', not '{}'", found - names.begin() + 1,
                     errors::shownText(*found), errors::shownText(*other));
}

bool areDistinct(const Names& names) {
  return std::set(names.begin(), names.end()).size() == names.size();
}

}  // namespace

FileTable lookAtFiles(const std::vector<std::string>& paths,
                      const std::vector<std::string_view>& endings) {
  if (paths.empty()) {
    errors::raiseStep("KALVEX:datastore:NoPaths");
  }
  FileTable table;
  for (const std::string& path : paths) {
    for (const std::string& file : expandPath(path, endings)) {
      table.files.push_back(SourceFile::stat(file));
    }
  }
  table.name = tableName(paths, table.files.size());
  return table;
}

std::string tableName(const std::vector<std::string>& paths, std::size_t files) {
  const std::string name = fmt::format("{}", fmt::join(paths, ", "));
  return files == 1 ? name : fmt::format("{} ({} files)", name, files);
}

std::vector<std::string> columnNames(const Schema& schema) {
  std::vector<std::string> names;
  for (const ColumnInfo& info : schema) {
    names.push_back(info.name);
  }
  return names;
}

std::size_t columnIndex(const Schema& schema, const std::string& name) {
  const auto column = std::ranges::find(schema, name, &ColumnInfo::name);
  if (column != schema.end()) {
    return static_cast<std::size_t>(column - schema.begin());
  }
  const std::string known = errors::shownNames(columnNames(schema));
  errors::raiseStep("KALVEX:datastore:UnknownColumn", {name, known});
}

ElementType typeNamed(const TypeOverride& wanted) {
  if (const auto type = elementTypeNamed(wanted.type)) {
    return *type;
  }
  Names known;
  for (const ElementType type : allElementTypes()) {
    known.emplace_back(elementTypeName(type));
  }
  const std::string types = errors::shownNames(known);
  errors::raiseStep("KALVEX:datastore:UnknownType", {wanted.column, wanted.type, types});
}

void requireSameColumns(const std::string& path, const Names& names, const std::string& first,
                        const Names& expected, const std::string& note) {
  if (names != expected) {
    errors::raiseStep("KALVEX:datastore:DifferentColumns",
                      {path, errors::shownNames(names), first, errors::shownNames(expected),
                       firstDifference(names, expected), note});
  }
}

void requireTypes(const std::string& source, const Schema& schema,
                  const std::vector<TypeOverride>& types) {
  for (const TypeOverride& wanted : types) {
    const ColumnInfo& column = schema[columnIndex(schema, wanted.column)];
    if (typeNamed(wanted) != column.type) {
      errors::raiseStep("KALVEX:datastore:FixedType",
                        {source, column.name, wanted.type, shownType(column)});
    }
  }
}

std::string shownType(const ColumnInfo& column) {
  return column.isReadable() ? std::string(elementTypeName(column.type)) : column.fileType;
}

void writeFile(ByteWriter& bytes, const SourceFile& file) {
  bytes.text(file.path);
  bytes.text(file.absolutePath);
  bytes.number(file.bytes);
  bytes.number(file.modified);
  bytes.flag(file.isFromSave);
}

SourceFile readFile(ByteReader& bytes) {
  SourceFile file;
  file.path = bytes.text();
  file.absolutePath = bytes.text();
  file.bytes = bytes.number<std::int64_t>();
  file.modified = bytes.number<std::int64_t>();
  file.isFromSave = bytes.flag();
  return file;
}

void writeTable(ByteWriter& bytes, const FileTable& table) {
  bytes.text(table.name);
  bytes.number<std::uint64_t>(table.files.size());
  for (const SourceFile& file : table.files) {
    writeFile(bytes, file);
  }
  bytes.number<std::uint64_t>(table.schema.size());
  for (const ColumnInfo& column : table.schema) {
    bytes.text(column.name);
    bytes.number(static_cast<std::uint8_t>(column.type));
    bytes.flag(column.isUndecided);
    bytes.flag(column.isNullable);
    bytes.text(column.fileType);
  }
}

FileTable readTable(ByteReader& bytes) {
  FileTable table;
  table.name = bytes.text();
  table.files.resize(bytes.count(4 * sizeof(std::uint64_t)));
  for (SourceFile& file : table.files) {
    file = readFile(bytes);
  }
  table.schema.resize(bytes.count(2 * sizeof(std::uint64_t) + 3));
  for (ColumnInfo& column : table.schema) {
    column.name = bytes.text();
    column.type = readElementType(bytes);
    column.isUndecided = bytes.flag();
    column.isNullable = bytes.flag();
    column.fileType = bytes.text();
  }
  if (table.files.empty() || !areDistinct(columnNames(table.schema))) {
    bytes.refuse();
  }
  return table;
}

}  // namespace kv::runtime

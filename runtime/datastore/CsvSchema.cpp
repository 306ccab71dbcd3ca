#include "datastore/CsvSchema.h"

#include <arrow/csv/parser.h>
#include <fmt/format.h>

#include <algorithm>
#include <unordered_set>

#include "datastore/CsvBlocks.h"
#include "datastore/CsvColumn.h"
#include "kv/runtime/DataError.h"

namespace kv::runtime {
namespace {

/// Bytes that are read of a file of which only the header is wanted.
constexpr std::int64_t kHeaderBytes = 64 * 1024;

std::string joined(const std::vector<std::string>& names) {
  return fmt::format("{}", fmt::join(names, ", "));
}

void throwIfDuplicate(const SourceFile& file, const std::vector<std::string>& names) {
  std::unordered_set<std::string> seen;
  for (const std::string& name : names) {
    if (seen.insert(name).second) continue;
    throw DataError("KALVEX:datastore:DuplicateColumn", {file.path, name},
                    fmt::format("The file '{}' has more than one column '{}'; names of columns "
                                "must be distinct.",
                                file.path, name));
  }
}

ElementType typeNamed(const TypeOverride& wanted) {
  if (const auto type = elementTypeNamed(wanted.type)) return *type;
  std::vector<std::string> known;
  for (const ElementType type : allElementTypes()) known.emplace_back(elementTypeName(type));
  throw DataError("KALVEX:datastore:UnknownType", {wanted.column, wanted.type, joined(known)},
                  fmt::format("There is no type '{}', which column '{}' should have; types are {}.",
                              wanted.type, wanted.column, joined(known)));
}

/// Double if all fields are numbers or missing; numbers too large are told when they are read.
ElementType inferredType(std::int32_t index, const arrow::csv::BlockParser& fields) {
  const CsvColumn asNumber(index, ElementType::Double);
  const bool isNumber = asNumber.convert(fields).fault != FieldFault::Unfit;
  return isNumber ? ElementType::Double : ElementType::String;
}

}  // namespace

Schema readCsvSchema(const SourceFile& file, const std::vector<TypeOverride>& types) {
  CsvBlocks blocks(file);
  const std::vector<std::string> names = blocks.readHeader();
  throwIfDuplicate(file, names);

  Schema schema;
  for (const std::string& name : names) schema.push_back({name, ElementType::Double});
  std::vector<bool> isFixed(schema.size(), false);
  for (const TypeOverride& wanted : types) {
    const std::size_t index = columnIndex(schema, wanted.column);
    schema[index].type = typeNamed(wanted);
    isFixed[index] = true;
  }

  const std::optional<CsvBlock> first = blocks.next();
  for (std::size_t index = 0; first && index < schema.size(); ++index) {
    if (isFixed[index]) continue;
    schema[index].type = inferredType(static_cast<std::int32_t>(index), *first->fields);
  }
  return schema;
}

void throwIfColumnsDiffer(const SourceFile& file, const SourceFile& first, const Schema& schema) {
  const std::vector<std::string> names = CsvBlocks(file, kHeaderBytes).readHeader();
  const std::vector<std::string> expected = columnNames(schema);
  if (names == expected) return;
  throw DataError("KALVEX:datastore:DifferentColumns",
                  {file.path, joined(names), first.path, joined(expected)},
                  fmt::format("Files of one table must have the same columns in the same order. "
                              "'{}' has: {}. '{}' has: {}.",
                              file.path, joined(names), first.path, joined(expected)));
}

std::size_t columnIndex(const Schema& schema, const std::string& name) {
  const auto column = std::find_if(schema.begin(), schema.end(),
                                   [&name](const ColumnInfo& info) { return info.name == name; });
  if (column != schema.end()) return static_cast<std::size_t>(column - schema.begin());
  const std::string known = joined(columnNames(schema));
  throw DataError("KALVEX:datastore:UnknownColumn", {name, known},
                  fmt::format("There is no column '{}'; columns are {}.", name, known));
}

std::vector<std::string> columnNames(const Schema& schema) {
  std::vector<std::string> names;
  for (const ColumnInfo& info : schema) names.push_back(info.name);
  return names;
}

}  // namespace kv::runtime

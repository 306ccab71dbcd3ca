// Types are decided once, from the first block or file that has a value in a column, and never
// change while reading: a type that depended on later rows would need a second pass. What doesn't
// fit is an error with advice.

#include "source/csv/CsvSchema.h"

#include <arrow/csv/parser.h>
#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <utility>

#include "kv/errors/StepError.h"
#include "kv/errors/shownText.h"
#include "source/csv/CsvBlocks.h"
#include "source/csv/CsvColumn.h"

namespace kv::runtime {

namespace {

/// Bytes that are read at a time from a file of which only the header is needed.
constexpr std::int64_t kHeaderBytes = 64 * 1024;

using Names = std::vector<std::string>;

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

std::string firstDifference(const Names& names, const Names& expected) {
  if (names.size() != expected.size()) {
    return fmt::format("{} columns, not {}", names.size(), expected.size());
  }
  const auto [found, other] = std::ranges::mismatch(names, expected);
  return fmt::format("column {} is '{}', not '{}'", found - names.begin() + 1,
                     errors::shownText(*found), errors::shownText(*other));
}

/// Infers the type of one column from the first block with a value in it.
class ColumnInference {
 public:
  ColumnInference(std::size_t index, ColumnInfo& info)
      : numbers_(static_cast<std::int32_t>(index), ElementType::Double), info_(&info) {
    info_->isUndecided = true;
  }

  /// Result: false while no value was found.
  bool decide(const CsvBlock& block) {
    const ConvertedColumn converted = numbers_.convert(*block.fields);
    if (converted.fault == FieldFault::None && isAllMissing(*converted.column)) {
      return false;
    }
    info_->isUndecided = false;
    // A number that is too large is reported when it is read; it doesn't make the column text.
    info_->type = converted.fault == FieldFault::Unfit ? ElementType::String : ElementType::Double;
    return true;
  }

 private:
  static bool isAllMissing(const Column& column) {
    return std::ranges::all_of(column.values<double>(),
                               [](double value) { return std::isnan(value); });
  }

  CsvColumn numbers_;
  ColumnInfo* info_;
};

/// Reads no more than it must, usually only the first block of the first file.
void inferTypes(std::span<const SourceFile> files, std::vector<ColumnInference> columns,
                std::int64_t inferenceBytes) {
  std::int64_t bytes = 0;
  for (const SourceFile& file : files) {
    if (columns.empty()) {
      return;
    }
    CsvBlocks blocks(file);
    blocks.readHeader();
    while (!columns.empty()) {
      const std::optional<CsvBlock> block = blocks.next();
      if (!block) {
        break;
      }
      std::erase_if(columns, [&](ColumnInference& column) { return column.decide(*block); });
      bytes += static_cast<std::int64_t>(block->records.size());
      if (bytes >= inferenceBytes) {
        return;
      }
    }
  }
}

}  // namespace

Schema readCsvSchema(std::span<const SourceFile> files, const std::vector<TypeOverride>& types,
                     std::int64_t inferenceBytes) {
  const Names names = CsvBlocks(files.front(), kHeaderBytes).readHeader();
  for (const SourceFile& file : files.subspan(1)) {
    requireSameColumns(file.path, CsvBlocks(file, kHeaderBytes).readHeader(), files.front().path,
                       names);
  }
  Schema schema;
  for (const std::string& name : names) {
    schema.push_back({name, ElementType::Double});
  }
  std::vector<bool> isFixed(schema.size(), false);
  for (const TypeOverride& wanted : types) {
    const std::size_t index = columnIndex(schema, wanted.column);
    schema[index].type = typeNamed(wanted);
    isFixed[index] = true;
  }
  std::vector<ColumnInference> inferred;
  for (std::size_t index = 0; index < schema.size(); ++index) {
    if (!isFixed[index]) {
      inferred.emplace_back(index, schema[index]);
    }
  }
  inferTypes(files, std::move(inferred), inferenceBytes);
  return schema;
}

void requireSameColumns(const std::string& path, const Names& names, const std::string& first,
                        const Names& expected) {
  if (names != expected) {
    errors::raiseStep("KALVEX:datastore:DifferentColumns",
                      {path, errors::shownNames(names), first, errors::shownNames(expected),
                       firstDifference(names, expected)});
  }
}

std::size_t columnIndex(const Schema& schema, const std::string& name) {
  const auto column = std::ranges::find(schema, name, &ColumnInfo::name);
  if (column != schema.end()) {
    return static_cast<std::size_t>(column - schema.begin());
  }
  const std::string known = errors::shownNames(columnNames(schema));
  errors::raiseStep("KALVEX:datastore:UnknownColumn", {name, known});
}

std::vector<std::string> columnNames(const Schema& schema) {
  std::vector<std::string> names;
  for (const ColumnInfo& info : schema) {
    names.push_back(info.name);
  }
  return names;
}

}  // namespace kv::runtime

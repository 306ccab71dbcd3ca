// Types are decided once, from the first block or file that has a value in a column, and never
// change while reading: a type that depended on later rows would need a second pass. What doesn't
// fit is an error with advice.

#include "source/csv/CsvSchema.h"

#include <arrow/csv/parser.h>

#include <algorithm>
#include <cassert>
#include <cmath>
#include <utility>

#include "kv/errors/StepError.h"
#include "source/csv/CsvBlocks.h"
#include "source/csv/CsvColumn.h"

namespace kv::runtime {

namespace {

/// Infers the type of one column from the first block with a value in it.
class ColumnInference {
 public:
  ColumnInference(std::size_t index, ColumnInfo& info, const CsvFormat& format)
      : numbers_(static_cast<std::int32_t>(index), {info.name, ElementType::Double}, format),
        moments_(numbers_.as(ElementType::DateTime)),
        info_(&info) {
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
    if (converted.fault == FieldFault::Unfit) {
      decideText(moments_.convert(*block.fields));
    }
    return true;
  }

 private:
  void decideText(const ConvertedColumn& moments) {
    info_->type = moments.column ? ElementType::DateTime : ElementType::String;
    info_->fileType = moments.hasOffsets ? "text with offsets from UTC" : "";
  }

  static bool isAllMissing(const Column& column) {
    return std::ranges::all_of(column.values<double>(),
                               [](double value) { return std::isnan(value); });
  }

  CsvColumn numbers_;
  CsvColumn moments_;
  ColumnInfo* info_;
};

/// Reads no more than it must, usually only the first block of the first file.
void inferTypes(std::span<const CsvFile> files, std::vector<ColumnInference> columns,
                std::int64_t inferenceBytes) {
  std::int64_t bytes = 0;
  for (const CsvFile& file : files) {
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

/// Errors: those of CsvBlocks.
Chunk firstRowsIn(CsvBlocks blocks, const Schema& schema, std::int64_t rows) {
  blocks.readHeader();
  const std::optional<CsvBlock> block = blocks.next();
  if (!block) {
    return {};
  }
  const CsvBlock first = firstRecords(*block, std::min(rows, block->rows()), blocks.file().format);
  Chunk chunk{.ordinals = RowOrdinals(0, first.rows())};
  chunk.names = std::make_shared<const std::vector<std::string>>(columnNames(schema));
  for (std::size_t index = 0; index < schema.size(); ++index) {
    const CsvColumn column(static_cast<std::int32_t>(index), schema[index], blocks.file().format);
    ConvertedColumn converted = column.convert(*first.fields);
    if (!converted.column) {
      return {};
    }
    chunk.columns.push_back(*std::move(converted.column));
  }
  return chunk;
}

}  // namespace

Chunk firstCsvRows(const CsvFile& file, const Schema& schema, std::int64_t rows) {
  try {
    return firstRowsIn(CsvBlocks(file, kCsvHeaderBytes), schema, rows);
  } catch (const errors::StepError&) {
    return {};
  }
}

Schema readCsvSchema(std::span<const CsvFile> files, const std::vector<TypeOverride>& types,
                     std::int64_t inferenceBytes) {
  assert(!files.empty());
  const CsvFormat& format = files.front().format;
  const auto namesIn = [](const CsvFile& file) {
    return CsvBlocks(file, kCsvHeaderBytes).readHeader();
  };
  const std::vector<std::string> names = namesIn(files.front());
  for (const CsvFile& file : files.subspan(1)) {
    requireSameColumns(file.file.path, namesIn(file), files.front().file.path, names,
                       separatorNote(format));
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
    if (const auto pattern = format.patterns.find(wanted.column);
        pattern != format.patterns.end()) {
      schema[index].fileType = "text by the pattern " + pattern->second;
    }
  }
  std::vector<ColumnInference> inferred;
  for (std::size_t index = 0; index < schema.size(); ++index) {
    if (!isFixed[index]) {
      inferred.emplace_back(index, schema[index], format);
    }
  }
  inferTypes(files, std::move(inferred), inferenceBytes);
  return schema;
}

}  // namespace kv::runtime

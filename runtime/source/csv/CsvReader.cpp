#include "source/csv/CsvReader.h"

#include <arrow/csv/parser.h>

#include <utility>

#include "source/csv/CsvErrorLocator.h"
#include "source/csv/CsvSchema.h"

namespace kv::runtime {

CsvReader::CsvReader(const SourceFile& file, std::int64_t partition, const Schema& schema,
                     const std::vector<std::string>& columns, const CancellationToken& cancellation)
    : blocks_(file),
      partition_(partition),
      names_(std::make_shared<const std::vector<std::string>>(columns)),
      cancellation_(cancellation) {
  // Size and time may agree by chance. Columns are read by position, so the names must match, too.
  if (blocks_.readHeader() != columnNames(schema)) {
    file.throwChanged();
  }
  for (const std::string& name : columns) {
    const std::size_t index = columnIndex(schema, name);
    infos_.push_back(schema[index]);
    columns_.emplace_back(static_cast<std::int32_t>(index), schema[index].type);
  }
}

std::optional<Chunk> CsvReader::next() {
  cancellation_.throwIfCancelled();
  const std::optional<CsvBlock> block = blocks_.next();
  if (!block) {
    return std::nullopt;
  }
  Chunk chunk{partition_, RowOrdinals(block->firstRow, block->rows()), names_, {}};
  chunk.columns.reserve(columns_.size());
  for (std::size_t i = 0; i < columns_.size(); ++i) {
    ConvertedColumn converted = columns_[i].convert(*block->fields);
    if (!converted.column) {
      throwFieldError(blocks_.file(), *block, columns_[i], infos_[i]);
    }
    chunk.columns.push_back(*std::move(converted.column));
  }
  return chunk;
}

}  // namespace kv::runtime

#include "source/csv/CsvReader.h"

#include <arrow/csv/parser.h>

#include <utility>

#include "source/csv/CsvErrorLocator.h"
#include "source/csv/CsvSchema.h"

namespace kv::runtime {

CsvReader::CsvReader(const CsvFile& file, ByteRange range, std::int64_t partition,
                     const Schema& schema, const std::vector<std::string>& columns,
                     const CancellationToken& cancellation)
    : blocks_(file, range),
      rangeBegin_(range.begin),
      partition_(partition),
      names_(std::make_shared<const std::vector<std::string>>(columns)),
      cancellation_(cancellation) {
  const bool isFirst = range.begin == 0;
  // Size and time may agree by chance. Columns are read by position, so the names must match, too.
  if ((isFirst ? blocks_.readHeader() : CsvBlocks(file, kCsvHeaderBytes).readHeader()) !=
      columnNames(schema)) {
    file.file.throwChanged();
  }
  if (!isFirst) {
    blocks_.skipHeader(schema.size());
  }
  for (const std::string& name : columns) {
    const std::size_t index = columnIndex(schema, name);
    infos_.push_back(schema[index]);
    columns_.emplace_back(static_cast<std::int32_t>(index), schema[index], file.format);
  }
}

CsvReader::~CsvReader() = default;

std::optional<Chunk> CsvReader::next() {
  cancellation_.throwIfCancelled();
  if (faulty_) {
    const std::size_t column = faulty_->field.column;
    throwFieldError(blocks_.file(), rangeBegin_, faulty_->block, faulty_->field, columns_[column],
                    infos_[column]);
  }
  std::optional<CsvBlock> block = blocks_.next();
  if (!block) {
    return std::nullopt;
  }
  if (auto chunk = converted(*block)) {
    return chunk;
  }
  const FaultyField field = firstFault(*block, columns_, blocks_.file().format);
  faulty_ = {*std::move(block), field};
  return field.row == 0 ? next()
                        : converted(firstRecords(faulty_->block, field.row, blocks_.file().format));
}

std::optional<Chunk> CsvReader::converted(const CsvBlock& block) const {
  Chunk chunk{partition_, RowOrdinals(block.firstRow, block.rows()), names_, {}};
  chunk.columns.reserve(columns_.size());
  for (const CsvColumn& column : columns_) {
    ConvertedColumn values = column.convert(*block.fields);
    if (!values.column) {
      return std::nullopt;
    }
    chunk.columns.push_back(*std::move(values.column));
  }
  return chunk;
}

}  // namespace kv::runtime

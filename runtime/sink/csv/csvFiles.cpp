// CSV in UTF-8, separated by commas, with a header. Texts are in quotes, and a missing value is an
// empty field without them. A row of one missing value would be an empty line, which readers skip:
// there it is NA, and refused for a text.

#include <arrow/array/array_base.h>
#include <arrow/array/builder_binary.h>
#include <arrow/csv/options.h>
#include <arrow/csv/writer.h>
#include <arrow/ipc/writer.h>
#include <arrow/record_batch.h>
#include <arrow/type.h>
#include <arrow/util/bit_util.h>
#include <fmt/format.h>

#include <cmath>
#include <memory>
#include <utility>

#include "column/allocate.h"
#include "column/elementTypes.h"
#include "column/pool.h"
#include "kv/errors/StepError.h"
#include "kv/runtime/times.h"
#include "sink/arrowRows.h"

namespace kv::runtime {

namespace {

/// Durations as texts, which Arrow can't write.
Column durationTexts(const Column& column) {
  arrow::StringBuilder texts(currentPool());
  for (const std::int64_t duration : column.values<std::int64_t>()) {
    checkArrow(duration == kNaT ? texts.AppendNull() : texts.Append(formatDuration(duration)));
  }
  std::shared_ptr<arrow::Array> array;
  checkArrow(texts.Finish(&array));
  return Column(ElementType::String, array->data());
}

/// The same floating numbers; those that are NaN are nulls, too.
template <class T>
Column withNulls(const Column& column) {
  const auto values = column.values<T>();
  if (std::ranges::none_of(values, [](T value) { return std::isnan(value); })) {
    return column;
  }
  const arrow::ArrayData& data = *column.data();
  auto validity = allocateBuffer(arrow::bit_util::BytesForBits(data.offset + data.length));
  for (std::int64_t row = 0; row < data.length; ++row) {
    arrow::bit_util::SetBitTo(validity->mutable_data(), data.offset + row,
                              !std::isnan(values[static_cast<std::size_t>(row)]));
  }
  return Column(column.type(), arrow::ArrayData::Make(data.type, data.length,
                                                      {std::move(validity), data.buffers[1]},
                                                      arrow::kUnknownNullCount, data.offset));
}

Column writtenColumn(const Column& column) {
  switch (column.type()) {
    case ElementType::Duration:
      return durationTexts(column);
    case ElementType::Double:
      return withNulls<double>(column);
    case ElementType::Single:
      return withNulls<float>(column);
    default:
      return column;
  }
}

SinkSchema writtenSchema(SinkSchema schema) {
  for (ElementType& type : schema.types) {
    type = type == ElementType::Duration ? ElementType::String : type;
  }
  return schema;
}

class CsvWriter final : public RowWriter {
 public:
  CsvWriter(OutputPtr file, SinkSchema schema, bool hasHeader)
      : file_(std::move(file)),
        schema_(std::move(schema)),
        written_(arrowSchemaOf(writtenSchema(schema_))) {
    auto options = arrow::csv::WriteOptions::Defaults();
    options.include_header = hasHeader;
    options.io_context = arrow::io::IOContext(currentPool());
    options.null_string = isAlone() ? "NA" : "";
    writer_ = file_->checked(arrow::csv::MakeCSVWriter(file_, written_, options));
  }

  void write(const Chunk& rows) override {
    Chunk written{.ordinals = rows.ordinals};
    for (const Column& column : rows.columns) {
      written.columns.push_back(writtenColumn(column));
    }
    if (isAlone() && schema_.types[0] == ElementType::String) {
      refuseMissing(written.columns[0], rows.ordinals);
    }
    file_->check(writer_->WriteRecordBatch(*arrowRows(written, written_)));
  }

  void finish() override { file_->check(writer_->Close()); }

 private:
  bool isAlone() const { return schema_.names.size() == 1; }

  void refuseMissing(const Column& texts, const RowOrdinals& ordinals) const {
    for (std::int64_t row = 0; texts.hasNulls() && row < texts.rows(); ++row) {
      if (texts.isNull(row)) {
        errors::raiseStep("KALVEX:sink:MissingValue", {"A CSV file of one column of texts",
                                                       fmt::format("{}", ordinals.at(row) + 1)});
      }
    }
  }

  OutputPtr file_;
  SinkSchema schema_;
  std::shared_ptr<arrow::Schema> written_;
  std::shared_ptr<arrow::ipc::RecordBatchWriter> writer_;
};

/// Pieces have no header, so their bytes follow one another.
class CsvJoiner final : public PieceJoiner {
 public:
  CsvJoiner(OutputPtr file, const SinkSchema& schema) : file_(std::move(file)) {
    CsvWriter(file_, schema, true).finish();
  }

  void append(const std::string& path, std::int64_t /*rows*/) override { file_->append(path); }
  void finish() override {}

 private:
  OutputPtr file_;
};

}  // namespace

std::unique_ptr<RowWriter> openCsv(const OutputPtr& file, const SinkSchema& schema, FilePart part) {
  return std::make_unique<CsvWriter>(file, schema, part == FilePart::Whole);
}

std::unique_ptr<PieceJoiner> joinCsv(const OutputPtr& file, const SinkSchema& schema) {
  return std::make_unique<CsvJoiner>(file, schema);
}

}  // namespace kv::runtime

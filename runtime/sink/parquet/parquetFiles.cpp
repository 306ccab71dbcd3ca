// Parquet with zstd and statistics. Pieces are whole files; to join them, the bytes of their row
// groups are copied as they are, and one footer is made of all of theirs, with offsets of the new
// file. So the rows are encoded once, by the units.

#include <arrow/io/file.h>
#include <arrow/record_batch.h>
#include <arrow/type.h>
#include <parquet/arrow/schema.h>
#include <parquet/arrow/writer.h>
#include <parquet/exception.h>
#include <parquet/file_reader.h>
#include <parquet/file_writer.h>
#include <parquet/metadata.h>
#include <parquet/properties.h>
#include <parquet/statistics.h>

#include <limits>
#include <map>
#include <memory>
#include <optional>
#include <utility>

#include "column/pool.h"
#include "sink/arrowRows.h"

namespace kv::runtime {

namespace {

constexpr std::int64_t kRowGroupRows = 131'072;
/// A column with more different values is written as it is. The tables in which they are looked up
/// would take many times the memory of the values.
constexpr std::int64_t kDictionaryBytes = std::int64_t{128} << 10;
constexpr std::int64_t kMagicBytes = 4;  ///< at the beginning of a file

std::shared_ptr<parquet::WriterProperties> writerProperties() {
  return parquet::WriterProperties::Builder()
      .memory_pool(currentPool())
      ->compression(parquet::Compression::ZSTD)
      ->max_row_group_length(kRowGroupRows)
      ->dictionary_pagesize_limit(kDictionaryBytes)
      ->build();
}

/// With the schema of Arrow, from which durations get their type back.
std::shared_ptr<parquet::ArrowWriterProperties> arrowProperties() {
  return parquet::ArrowWriterProperties::Builder().store_schema()->set_use_threads(false)->build();
}

/// Runs a call of Parquet; what it throws becomes an error of the file.
template <class Call>
auto withParquet(const OutputFile& file, Call&& call) -> decltype(call()) {
  try {
    return std::forward<Call>(call)();
  } catch (const parquet::ParquetStatusException& failure) {
    file.check(failure.status());
    throw;
  } catch (const parquet::ParquetException& failure) {
    file.check(arrow::Status::IOError(failure.what()));
    throw;
  }
}

class ParquetWriter final : public RowWriter {
 public:
  ParquetWriter(OutputPtr file, const SinkSchema& schema)
      : file_(std::move(file)), schema_(arrowSchemaOf(schema)) {
    writer_ = withParquet(*file_, [&] {
      return file_->checked(parquet::arrow::FileWriter::Open(
          *schema_, currentPool(), file_, writerProperties(), arrowProperties()));
    });
  }

  void write(const Chunk& rows) override {
    withParquet(*file_,
                [&] { file_->check(writer_->WriteRecordBatch(*arrowRows(rows, schema_))); });
  }

  void finish() override {
    withParquet(*file_, [&] { file_->check(writer_->Close()); });
  }

 private:
  OutputPtr file_;
  std::shared_ptr<arrow::Schema> schema_;
  std::unique_ptr<parquet::arrow::FileWriter> writer_;
};

using EncodingCounts = std::map<parquet::Encoding::type, std::int32_t>;

/// Adds a column chunk to a row group, its bytes being `shift` bytes further on.
void addColumnChunk(const parquet::ColumnChunkMetaData& column, std::int64_t shift,
                    parquet::ColumnChunkMetaDataBuilder& copy) {
  if (column.is_stats_set()) {
    copy.SetStatistics(*column.encoded_statistics());
  }
  if (const auto sizes = column.size_statistics(); sizes != nullptr) {
    copy.SetSizeStatistics(*sizes);
  }
  EncodingCounts dictionaryPages;
  EncodingCounts dataPages;
  bool hasPlainPages = false;
  for (const parquet::PageEncodingStats& pages : column.encoding_stats()) {
    const bool isDictionary = pages.page_type == parquet::PageType::DICTIONARY_PAGE;
    (isDictionary ? dictionaryPages : dataPages)[pages.encoding] += pages.count;
    hasPlainPages = hasPlainPages || (!isDictionary && pages.encoding == parquet::Encoding::PLAIN);
  }
  const bool hasDictionary = column.has_dictionary_page();
  copy.Finish(column.num_values(), hasDictionary ? column.dictionary_page_offset() + shift : -1, -1,
              column.data_page_offset() + shift, column.total_compressed_size(),
              column.total_uncompressed_size(), hasDictionary, hasDictionary && hasPlainPages,
              dictionaryPages, dataPages);
}

class ParquetJoiner final : public PieceJoiner {
 public:
  ParquetJoiner(OutputPtr file, const SinkSchema& schema)
      : file_(std::move(file)), properties_(writerProperties()) {
    withParquet(*file_, [&] {
      file_->check(parquet::arrow::ToParquetSchema(arrowSchemaOf(schema).get(), *properties_,
                                                   *arrowProperties(), &schema_));
      builder_ = parquet::FileMetaDataBuilder::Make(schema_.get(), properties_);
    });
    file_->put("PAR1");
  }

  void append(const std::string& path, std::int64_t /*rows*/) override {
    withParquet(*file_, [&] {
      const auto input = file_->checked(arrow::io::ReadableFile::Open(path, currentPool()));
      const auto footer = parquet::ReadMetaData(input);
      const std::int64_t end = file_->checked(input->GetSize()) - footer->size() - 2 * kMagicBytes;
      const std::int64_t shift = file_->bytes() - kMagicBytes;
      for (int i = 0; i < footer->num_row_groups(); ++i) {
        addRowGroup(*footer->RowGroup(i), shift);
      }
      keyValues_ = footer->key_value_metadata();
      file_->append(path, kMagicBytes, end);
    });
  }

  void finish() override {
    withParquet(*file_,
                [&] { parquet::WriteFileMetaData(*builder_->Finish(keyValues_), file_.get()); });
  }

 private:
  void addRowGroup(const parquet::RowGroupMetaData& group, std::int64_t shift) {
    parquet::RowGroupMetaDataBuilder* copy = builder_->AppendRowGroup();
    copy->set_num_rows(group.num_rows());
    std::int64_t bytes = 0;
    for (int i = 0; i < group.num_columns(); ++i) {
      const auto column = group.ColumnChunk(i);
      addColumnChunk(*column, shift, *copy->NextColumnChunk());
      bytes += column->total_uncompressed_size();
    }
    const bool hasOrdinal = numRowGroups_ <= std::numeric_limits<std::int16_t>::max();
    copy->Finish(bytes, static_cast<std::int16_t>(hasOrdinal ? numRowGroups_++ : -1));
  }

  OutputPtr file_;
  std::shared_ptr<parquet::WriterProperties> properties_;
  std::shared_ptr<parquet::SchemaDescriptor> schema_;
  std::unique_ptr<parquet::FileMetaDataBuilder> builder_;
  std::shared_ptr<const arrow::KeyValueMetadata> keyValues_;  ///< the schema of Arrow
  int numRowGroups_ = 0;
};

}  // namespace

std::unique_ptr<RowWriter> openParquet(const OutputPtr& file, const SinkSchema& schema,
                                       FilePart /*part*/) {
  return std::make_unique<ParquetWriter>(file, schema);
}

std::unique_ptr<PieceJoiner> joinParquet(const OutputPtr& file, const SinkSchema& schema) {
  return std::make_unique<ParquetJoiner>(file, schema);
}

}  // namespace kv::runtime

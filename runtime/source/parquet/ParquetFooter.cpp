// What a file says of itself, and may say wrongly: sizes, types and numbers of rows are checked
// here before anything relies on them.

#include "source/parquet/ParquetFooter.h"

#include <arrow/status.h>
#include <arrow/type.h>
#include <fmt/format.h>
#include <parquet/arrow/schema.h>
#include <parquet/exception.h>
#include <parquet/metadata.h>
#include <parquet/properties.h>
#include <parquet/statistics.h>

#include <algorithm>
#include <new>
#include <string_view>
#include <utility>

#include "column/allocate.h"
#include "column/bytes.h"
#include "column/elementTypes.h"
#include "kv/errors/StepError.h"
#include "source/Fingerprint.h"
#include "source/arrowColumn.h"
#include "source/distinctNames.h"

namespace kv::runtime {

namespace {

constexpr std::string_view kMagic = "PAR1";
constexpr std::string_view kEncryptedMagic = "PARE";
constexpr std::int64_t kTailBytes = 8;  ///< the length of the footer, and the magic

[[noreturn]] void refuse(const SourceFile& file, const std::string& reason) {
  errors::raiseStep("KALVEX:datastore:BadParquet", {file.path, reason});
}

std::string bytesAt(const SourceInput& input, std::int64_t offset, std::int64_t size) {
  std::string bytes(static_cast<std::size_t>(size), '\0');
  input.readAt(offset, bytes.data(), bytes.size());
  return bytes;
}

/// The bytes of the footer, which follow the data.
std::string footerBytes(const SourceInput& input) {
  const SourceFile& file = input.file();
  const auto magicBytes = static_cast<std::int64_t>(kMagic.size());
  const std::string begin = bytesAt(input, 0, std::min(file.bytes, magicBytes));
  if (begin == kEncryptedMagic) {
    refuse(file, "it is encrypted");
  }
  if (begin != kMagic) {
    refuse(file, "it isn't a Parquet file, which begins with \"PAR1\"");
  }
  const std::int64_t most = file.bytes - magicBytes - kTailBytes;
  const std::string tail = bytesAt(input, std::max<std::int64_t>(0, file.bytes - kTailBytes),
                                   std::min(file.bytes, kTailBytes));
  if (most < 0 || !tail.ends_with(kMagic)) {
    refuse(file,
           "it doesn't end with \"PAR1\", as a file does that was written and copied completely");
  }
  const std::int64_t size = ByteReader(tail, "a footer").number<std::uint32_t>();
  if (size > most) {
    refuse(file,
           fmt::format("its footer should have {} bytes, and there is room for {}", size, most));
  }
  return bytesAt(input, file.bytes - kTailBytes - size, size);
}

/// True unless the file says that no value of the column is null.
bool mayHoldNulls(const parquet::FileMetaData& metadata, int leaf) {
  if (metadata.schema()->Column(leaf)->max_definition_level() == 0) {
    return false;
  }
  for (int group = 0; group < metadata.num_row_groups(); ++group) {
    const auto statistics = metadata.RowGroup(group)->ColumnChunk(leaf)->statistics();
    if (statistics == nullptr || !statistics->HasNullCount() || statistics->null_count() != 0) {
      return true;
    }
  }
  return false;
}

void readColumns(ParquetFooter& footer) {
  parquet::arrow::SchemaManifest manifest;
  const parquet::ArrowReaderProperties properties = parquetProperties();
  PARQUET_THROW_NOT_OK(parquet::arrow::SchemaManifest::Make(
      footer.metadata->schema(), footer.metadata->key_value_metadata(), properties, &manifest));
  std::vector<std::string> names;
  for (const parquet::arrow::SchemaField& field : manifest.schema_fields) {
    names.push_back(field.field->name());
  }
  names = distinctNames(std::move(names));
  for (const parquet::arrow::SchemaField& field : manifest.schema_fields) {
    const arrow::DataType& type = *field.field->type();
    ColumnInfo info{std::move(names[footer.schema.size()]), elementTypeOf(type)};
    info.isNullable = isWhole(info.type) && mayHoldNulls(*footer.metadata, field.column_index);
    info.fileType = foreignTypeName(type);
    footer.schema.push_back(std::move(info));
    footer.leaves.push_back(field.column_index);
  }
}

void readBlocks(ParquetFooter& footer) {
  const parquet::FileMetaData& metadata = *footer.metadata;
  std::int64_t rows = 0;
  for (int group = 0; group < metadata.num_row_groups(); ++group) {
    const std::int64_t more = metadata.RowGroup(group)->num_rows();
    if (more < 0 || more > metadata.num_rows() - rows) {
      throw parquet::ParquetException("row groups have more rows than the file");
    }
    rows += more;
    footer.blocks.push_back(
        {more, std::max<std::int64_t>(0, metadata.RowGroup(group)->total_byte_size())});
  }
  if (rows != metadata.num_rows()) {
    throw parquet::ParquetException("row groups have fewer rows than the file");
  }
}

}  // namespace

parquet::ArrowReaderProperties parquetProperties() {
  parquet::ArrowReaderProperties properties(/*use_threads=*/false);
  properties.set_pre_buffer(false);
  properties.set_arrow_extensions_enabled(false);
  properties.set_coerce_int96_timestamp_unit(arrow::TimeUnit::MICRO);
  return properties;
}

std::shared_ptr<const ParquetFooter> ParquetFooter::read(const SourceInput& input) {
  const std::string bytes = footerBytes(input);
  auto footer = std::make_shared<ParquetFooter>();
  footer->hash = Fingerprint().add(bytes).digits();
  try {
    footer->metadata =
        parquet::FileMetaData::Make(bytes.data(), static_cast<std::int64_t>(bytes.size()));
    if (footer->metadata->is_encryption_algorithm_set()) {
      refuse(input.file(), "it is encrypted");
    }
    readBlocks(*footer);
    readColumns(*footer);
  } catch (const parquet::ParquetStatusException& exception) {
    throwIfOutOfMemory(exception.status());
    refuse(input.file(), "its footer is damaged");
  } catch (const parquet::ParquetException&) {
    refuse(input.file(), "its footer is damaged");
  }
  return footer;
}

}  // namespace kv::runtime

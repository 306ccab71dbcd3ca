#pragma once

#include <arrow/array/builder_binary.h>
#include <arrow/array/builder_primitive.h>
#include <arrow/buffer.h>
#include <arrow/io/compressed.h>
#include <arrow/io/memory.h>
#include <arrow/json/from_string.h>
#include <arrow/table.h>
#include <arrow/type.h>
#include <arrow/util/compression.h>
#include <parquet/arrow/writer.h>
#include <parquet/properties.h>

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "column/allocate.h"

/// The bytes of Parquet files and of compressed ones, as another program would write them.
namespace kv::runtime::test {

using ArrayPtr = std::shared_ptr<arrow::Array>;
using Columns = std::vector<std::pair<std::string, ArrayPtr>>;

template <class T>
T orThrow(arrow::Result<T> result) {
  checkArrow(result.status());
  return *std::move(result);
}

inline ArrayPtr arrayOf(const std::shared_ptr<arrow::DataType>& type, const std::string& json) {
  return orThrow(arrow::json::ArrayFromJSONString(type, json));
}

inline ArrayPtr doubles(const std::vector<double>& values) {
  arrow::DoubleBuilder builder;
  checkArrow(builder.AppendValues(values));
  return orThrow(builder.Finish());
}

inline ArrayPtr texts(const std::vector<std::string>& values) {
  arrow::StringBuilder builder;
  checkArrow(builder.AppendValues(values));
  return orThrow(builder.Finish());
}

struct WriteOptions {
  std::int64_t groupRows = 1 << 20;
  bool hasStatistics = true;
  arrow::Compression::type compression = arrow::Compression::SNAPPY;
};

inline std::string parquetBytes(const Columns& columns, const WriteOptions& options = {}) {
  arrow::FieldVector fields;
  arrow::ArrayVector arrays;
  for (const auto& [name, array] : columns) {
    fields.push_back(arrow::field(name, array->type()));
    arrays.push_back(array);
  }
  const auto table = arrow::Table::Make(arrow::schema(fields), arrays);
  parquet::WriterProperties::Builder properties;
  properties.enable_page_checksum()->compression(options.compression);
  if (!options.hasStatistics) {
    properties.disable_statistics();
  }
  const auto sink = orThrow(arrow::io::BufferOutputStream::Create());
  checkArrow(parquet::arrow::WriteTable(
      *table, arrow::default_memory_pool(), sink, options.groupRows, properties.build(),
      parquet::ArrowWriterProperties::Builder().store_schema()->build()));
  return orThrow(sink->Finish())->ToString();
}

inline std::string compressed(std::string_view text, arrow::Compression::type with) {
  const auto codec = orThrow(arrow::util::Codec::Create(with));
  const auto bytes = orThrow(arrow::io::BufferOutputStream::Create());
  const auto stream = orThrow(arrow::io::CompressedOutputStream::Make(codec.get(), bytes));
  checkArrow(stream->Write(text.data(), std::ssize(text)));
  checkArrow(stream->Close());
  return orThrow(bytes->Finish())->ToString();
}

}  // namespace kv::runtime::test

// NumPy's format, version 1.0: a header of fixed size, in which the number of rows is filled in
// last, then the elements in C order. Columns of a table that all have one type are a matrix.

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <array>
#include <bit>
#include <cstring>
#include <memory>
#include <optional>
#include <utility>

#include "column/allocate.h"
#include "column/arrays.h"
#include "column/elementTypes.h"
#include "kv/errors/StepError.h"
#include "kv/runtime/Column.h"
#include "sink/RowWriter.h"

namespace kv::runtime {

namespace {

static_assert(std::endian::native == std::endian::little, "elements are written as they are");

/// Enough for 19 digits in each of some dimensions; a multiple of 64, as the format requires.
constexpr std::size_t kHeaderBytes = 256;
constexpr std::string_view kMagic("\x93NUMPY\x01\x00", 8);

struct NpyType {
  ElementType type;
  std::string_view code;
};

constexpr std::array kNpyTypes{
    NpyType{ElementType::Logical, "|b1"},      NpyType{ElementType::Double, "<f8"},
    NpyType{ElementType::Single, "<f4"},       NpyType{ElementType::Int8, "|i1"},
    NpyType{ElementType::UInt8, "|u1"},        NpyType{ElementType::Int16, "<i2"},
    NpyType{ElementType::UInt16, "<u2"},       NpyType{ElementType::Int32, "<i4"},
    NpyType{ElementType::UInt32, "<u4"},       NpyType{ElementType::Int64, "<i8"},
    NpyType{ElementType::UInt64, "<u8"},       NpyType{ElementType::DateTime, "<M8[us]"},
    NpyType{ElementType::Duration, "<m8[us]"}, NpyType{ElementType::Unknown, "<f8"},
};

/// The dimensions of an element of the first dimension.
Dimensions trailingOf(const SinkSchema& schema) {
  if (!schema.isArray()) {
    return schema.types.size() == 1 ? Dimensions{}
                                    : Dimensions{static_cast<std::int64_t>(schema.types.size())};
  }
  return schema.trailing;
}

std::string headerOf(const SinkSchema& schema, std::int64_t rows) {
  const auto* type = std::ranges::find(kNpyTypes, schema.types.front(), &NpyType::type);
  std::string shape = fmt::format("{},", rows);
  for (const std::int64_t extent : trailingOf(schema)) {
    shape += fmt::format(" {},", extent);
  }
  std::string text =
      fmt::format("{{'descr': '{}', 'fortran_order': False, 'shape': ({}), }}", type->code, shape);
  text.resize(std::max(text.size() + 1, kHeaderBytes - kMagic.size() - 2), ' ');
  if (const std::size_t over = (text.size() + kMagic.size() + 2) % 64; over != 0) {
    text.append(64 - over, ' ');
  }
  text.back() = '\n';
  std::string header(kMagic);
  header += static_cast<char>(text.size() & 0xFF);
  header += static_cast<char>(text.size() >> 8);
  return header + text;
}

class NpyWriter final : public RowWriter {
 public:
  NpyWriter(OutputPtr file, SinkSchema schema, bool hasHeader)
      : file_(std::move(file)),
        schema_(std::move(schema)),
        order_(rowMajorColumns(trailingOf(schema_))),
        hasHeader_(hasHeader) {
    if (hasHeader_) {
      file_->put(headerOf(schema_, 0));
    }
  }

  void write(const Chunk& rows) override {
    for (const Column& column : rows.columns) {
      refuseMissing(column, rows.ordinals);
    }
    visitNumeric(rows.columns.front().type(), [&]<class T>() { writeElements<T>(rows); });
    rows_ += rows.rows();
  }

  void finish() override {
    if (hasHeader_) {
      setRows(rows_);
    }
  }

  void setRows(std::int64_t rows) { file_->putFirst(headerOf(schema_, rows)); }

 private:
  static void refuseMissing(const Column& column, const RowOrdinals& ordinals) {
    for (std::int64_t row = 0; column.hasNulls() && row < column.rows(); ++row) {
      if (column.isNull(row)) {
        errors::raiseStep("KALVEX:sink:MissingValue",
                          {fmt::format("A .npy file of {}", elementTypeName(column.type())),
                           fmt::format("{}", ordinals.at(row) + 1)});
      }
    }
  }

  template <class T>
  void writeElements(const Chunk& rows) {
    const auto count = static_cast<std::size_t>(rows.rows());
    const std::size_t width = order_.size();
    if (width == 1) {
      const auto values = rows.columns.front().values<T>();
      return file_->put({reinterpret_cast<const char*>(values.data()), count * sizeof(T)});
    }
    const auto buffer = allocateBuffer(static_cast<std::int64_t>(count * width * sizeof(T)));
    auto* elements = buffer->mutable_data_as<T>();
    for (std::size_t i = 0; i < width; ++i) {
      const auto values = rows.columns[order_[i]].values<T>();
      for (std::size_t row = 0; row < count; ++row) {
        elements[row * width + i] = values[row];
      }
    }
    file_->put({buffer->data_as<char>(), static_cast<std::size_t>(buffer->size())});
  }

  OutputPtr file_;
  SinkSchema schema_;
  std::vector<std::size_t> order_;
  bool hasHeader_;
  std::int64_t rows_ = 0;
};

/// Pieces have no header, so their bytes follow one another.
class NpyJoiner final : public PieceJoiner {
 public:
  NpyJoiner(OutputPtr file, const SinkSchema& schema)
      : file_(std::move(file)), header_(file_, schema, true) {}

  void append(const std::string& path, std::int64_t rows) override {
    file_->append(path);
    rows_ += rows;
  }
  void finish() override { header_.setRows(rows_); }

 private:
  OutputPtr file_;
  NpyWriter header_;
  std::int64_t rows_ = 0;
};

}  // namespace

void checkNpySchema(const SinkSchema& schema) {
  for (std::size_t i = 0; i < schema.types.size(); ++i) {
    const std::string name = schema.isArray() ? "the array" : "column '" + schema.names[i] + "'";
    if (std::ranges::find(kNpyTypes, schema.types[i], &NpyType::type) == kNpyTypes.end()) {
      errors::raiseStep("KALVEX:sink:UnsupportedType",
                        {".npy", name, std::string(elementTypeName(schema.types[i]))});
    }
    if (schema.types[i] != schema.types.front()) {
      errors::raiseStep("KALVEX:sink:MixedTypes",
                        {schema.names.front(), std::string(elementTypeName(schema.types.front())),
                         schema.names[i], std::string(elementTypeName(schema.types[i]))});
    }
  }
}

std::unique_ptr<RowWriter> openNpy(const OutputPtr& file, const SinkSchema& schema, FilePart part) {
  return std::make_unique<NpyWriter>(file, schema, part == FilePart::Whole);
}

std::unique_ptr<PieceJoiner> joinNpy(const OutputPtr& file, const SinkSchema& schema) {
  return std::make_unique<NpyJoiner>(file, schema);
}

}  // namespace kv::runtime

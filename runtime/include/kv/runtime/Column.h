#pragma once

#include <arrow/type_fwd.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string_view>

namespace kv::runtime {

/// The possible types of an element of a column.
enum class ElementType : std::uint8_t {
  Logical,
  Double,
  Single,
  Int8,
  UInt8,
  Int16,
  UInt16,
  Int32,
  UInt32,
  Int64,
  UInt64,
  String,
  Unknown,   ///< of no rows: a function's result type isn't known before it was given rows
  DateTime,  ///< a moment; appended, since the number of a type is part of stored states
  Duration,
};

/// Name of a type as users write it: "logical", "double", "single", "int8" ... "uint64", "string",
/// "datetime", "duration"; "unknown", which users can't write, for Unknown.
std::string_view elementTypeName(ElementType type);

/// The type with the name `name`; empty if there is none.
std::optional<ElementType> elementTypeNamed(std::string_view name);

/// All types that data may have, in the order of the enumeration: all but Unknown.
std::span<const ElementType> allElementTypes();

/// Bytes of one element in a column's buffer; 0 for String.
std::size_t elementSize(ElementType type);

/// Arrow's type of a column's buffers; uint8 for Logical, for which Arrow has no byte-wide type;
/// microseconds for DateTime, without a time zone, and Duration.
const std::shared_ptr<arrow::DataType>& arrowTypeOf(ElementType type);

/// A column: an immutable run of elements of one type, in Arrow's layout.
///
/// 1. A numeric column is the Arrow primitive array of the same type: a missing value of Double or
///    Single is NaN.
/// 2. A Logical column holds one byte per element, 0 or 1 (Arrow's bool8 layout).
/// 3. A String column is an Arrow utf8 array; a missing value is a null in its validity bitmap.
/// 4. An Unknown column has no rows, and the layout of a Double column. It fits every type.
/// 5. A missing value of an integer or logical column is a null in its validity bitmap. Its element
///    has no meaning. A column that may have such values is nullable, also where these rows have
///    none, so that all chunks of it are the same to users' functions.
/// 6. A DateTime column has microseconds since 1970-01-01T00:00:00 UTC, a Duration column
///    microseconds, as 64-bit integers. The smallest integer, kNaT, is a missing value.
///
/// A Column is a handle: copies share the buffers. Buffers may belong to a reader, a host value or
/// a memory pool; the handle keeps them alive.
///
/// Threads: may be read by several threads.
class Column {
 public:
  /// Nullable if it is an integer or logical column with a validity bitmap.
  ///
  /// Requires: `data` has the layout of `type`.
  Column(ElementType type, std::shared_ptr<arrow::ArrayData> data);

  /// A numeric or logical column over `buffer`, which holds `rows` elements.
  Column(ElementType type, std::int64_t rows, std::shared_ptr<arrow::Buffer> buffer);

  ElementType type() const { return type_; }
  std::int64_t rows() const;

  /// The elements of a column of any type but String; `T` has the width of the type.
  ///
  /// Lives: as long as a handle to the column.
  template <class T>
  std::span<const T> values() const {
    return {static_cast<const T*>(rawValues(sizeof(T))), static_cast<std::size_t>(rows())};
  }

  /// True for an integer or logical column that may have missing values.
  bool isNullable() const { return isNullable_; }

  /// The same column; an integer or logical one is nullable.
  Column asNullable() const;

  /// True if the column has nulls. A NaN isn't one.
  bool hasNulls() const;

  /// True if element `row` is a null.
  bool isNull(std::int64_t row) const;

  /// Element `row` of a String column, UTF-8; empty if it is missing.
  ///
  /// Lives: as long as a handle to the column.
  std::string_view text(std::int64_t row) const;

  /// Rows [first, first + count) of this column; shares the buffers.
  Column slice(std::int64_t first, std::int64_t count) const;

  /// Bytes that the rows of this column occupy; of shared buffers only the part of these rows.
  std::int64_t byteSize() const;

  const std::shared_ptr<arrow::ArrayData>& data() const { return data_; }

 private:
  const void* rawValues(std::size_t width) const;

  ElementType type_;
  bool isNullable_ = false;
  std::shared_ptr<arrow::ArrayData> data_;
};

/// A column of no rows.
Column emptyColumn(ElementType type);

/// A column of `rows` missing values: NaN for floating types, kNaT for times, nulls for others.
///
/// Errors: std::bad_alloc if memory runs out.
Column missingColumn(ElementType type, std::int64_t rows);

}  // namespace kv::runtime

#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "kv/errors/bytes.h"
#include "kv/runtime/Column.h"
#include "kv/runtime/PositionCut.h"

namespace kv::runtime {

/// Columns that are best read together, such as those of a file that holds row after row.
///
/// Immutable. Threads: any, several at a time.
class ArrayBlock {
 public:
  virtual ~ArrayBlock() = default;

  /// The elements of the columns with these numbers at positions [first, first + count).
  ///
  /// Errors: as for ArrayColumn::elements.
  virtual std::vector<Column> read(std::int64_t first, std::int64_t count,
                                   const std::vector<std::size_t>& columns) const = 0;

  /// The paths of its files, and that of the file with a position.
  virtual std::vector<std::string> files() const = 0;
  virtual std::string fileOf(std::int64_t position) const = 0;
};

/// The elements of a column by position: in memory, computed when they are read, or in a file.
///
/// Immutable. Threads: any, several at a time.
class ArrayColumn {
 public:
  virtual ~ArrayColumn() = default;

  virtual ElementType type() const = 0;

  /// True for integers or logicals some of which may be missing.
  virtual bool isNullable() const { return false; }

  /// The type of what the column was made of, where that is another one.
  virtual std::string_view foreignType() const { return {}; }

  /// The elements at positions [first, first + count).
  ///
  /// Errors: std::bad_alloc; "KALVEX:datastore:UnsupportedColumn".
  virtual Column elements(std::int64_t first, std::int64_t count) const = 0;

  /// What the column is read with, and its number there; null if it is read alone.
  virtual const ArrayBlock* block() const { return nullptr; }
  virtual std::size_t numberInBlock() const { return 0; }

  /// True if the elements are computed or in a file: `describe` then writes all that is needed to
  /// get at them in any process. In a description to save, a file that is gone is reported as one
  /// that a save recorded.
  virtual bool isDescribed() const { return false; }
  virtual void describe(errors::ByteWriter& /*bytes*/) const {}
  virtual void describeForSave(errors::ByteWriter& bytes) const { describe(bytes); }
};

/// Reads a column that is in a file, after its kind; `previous` is the column that was read before,
/// null for the first.
/// Errors: "KALVEX:executor:BadBytes".
using ReadFileColumn = std::shared_ptr<const ArrayColumn> (*)(errors::ByteReader& bytes,
                                                              const PositionCut& cut,
                                                              const ArrayColumn* previous);

}  // namespace kv::runtime

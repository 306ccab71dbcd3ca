#pragma once

#include <cstdint>

#include "kv/errors/bytes.h"
#include "kv/runtime/Column.h"

namespace kv::runtime {

/// The elements of a column by position: in memory, or computed when they are read.
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

  /// True if the elements are computed: `describe` then writes all that is needed to do so.
  virtual bool isGenerated() const { return false; }
  virtual void describe(errors::ByteWriter& /*bytes*/) const {}
};

}  // namespace kv::runtime

#pragma once

#include <arrow/datum.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <vector>

#include "kv/runtime/Column.h"

namespace arrow::compute {
class ExecContext;
class Grouper;
}  // namespace arrow::compute

namespace kv::runtime {

/// The distinct keys among rows, numbered from 0 in any order: the only user of Arrow's hash table
/// for keys.
///
/// Two keys are the same if all of their columns are. -0 is the same as +0, any NaN the same as any
/// other, and a missing value the same as any other.
///
/// Threads: one at a time.
class GroupKeys {
 public:
  /// `types`: of the columns, none Unknown. Requires: at least one.
  explicit GroupKeys(std::vector<ElementType> types);
  ~GroupKeys();
  GroupKeys(GroupKeys&&) noexcept;
  GroupKeys& operator=(GroupKeys&&) noexcept;

  const std::vector<ElementType>& types() const { return types_; }
  std::int64_t size() const;

  /// The number of each row's key, new ones included.
  ///
  /// Requires: columns of the types, equally long.
  /// Lives: until the next call.
  /// Errors: std::bad_alloc; the keys can't be used afterwards.
  std::span<const std::uint32_t> numbersOf(const std::vector<Column>& columns);

  /// The same without new ones: `kUnknown` for a key that isn't among them.
  static constexpr std::uint32_t kUnknown = UINT32_MAX;
  std::vector<std::uint32_t> find(const std::vector<Column>& columns);

  bool isNullable(std::size_t column) const { return isNullable_[column]; }

  /// The keys by number, a column for each of theirs.
  std::vector<Column> keys() const;

 private:
  std::vector<ElementType> types_;
  std::vector<bool> isNullable_;
  std::unique_ptr<arrow::compute::ExecContext> context_;
  std::unique_ptr<arrow::compute::Grouper> grouper_;
  arrow::Datum numbers_;
};

/// A column in which all values that are the same key have the same bits.
Column canonicalKeys(const Column& column);

/// The places of rows in ascending order of keys, by the first column, then the second and so on;
/// missing values and NaN come last, texts are in the order of their bytes. Equal keys stay in
/// order.
///
/// Requires: equally long columns, at least one.
/// Result: a UInt64 column.
Column ascendingOrder(const std::vector<Column>& columns);

/// The rows of a column at `places`, a UInt64 column.
Column takeRows(const Column& column, const Column& places);

}  // namespace kv::runtime

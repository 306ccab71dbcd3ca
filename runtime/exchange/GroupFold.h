#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <vector>

#include "kv/runtime/Aggregates.h"
#include "kv/runtime/Column.h"
#include "kv/runtime/GroupFunctions.h"

namespace kv::runtime {

/// The states of one aggregate, one for each group.
///
/// 1. The rows of a group are folded one by one in their order; states of later rows are merged
///    into those of earlier ones. Which groups are folded together changes nothing.
/// 2. States have a form as columns, in which they leave a unit, and are spilled.
///
/// Memory: from currentResource() of the thread that makes it.
/// Threads: one at a time.
class GroupFold {
 public:
  virtual ~GroupFold() = default;

  /// Makes room for groups 0 to `groups` - 1; new ones have no rows.
  virtual void resize(std::int64_t groups) = 0;

  /// Adds each row to its group.
  /// Requires: a group for each row, for which there is room.
  virtual void add(std::span<const std::uint32_t> groups, const Column& rows) = 0;

  /// Merges group i of `later`, of the same aggregate and type, into groups[i].
  virtual void merge(const GroupFold& later, std::span<const std::uint32_t> groups) = 0;

  /// The states as columns, a row for each group; always as many columns.
  virtual std::vector<Column> states() const = 0;
  virtual std::size_t numStates() const = 0;

  /// Takes states over that `states` gave. Requires: no groups yet.
  virtual void setStates(std::span<const Column> columns) = 0;

  /// The results, one for each group.
  /// Errors: "KALVEX:function:Overflow" if a sum of integers doesn't fit its type.
  virtual Column answers() const = 0;
};

/// One result of a step by key: a function, and the rows that it takes.
struct GroupedValue {
  const GroupFunction* function = nullptr;  ///< of the table
  MissingRule missing = MissingRule::Skip;
  std::size_t input = 0;  ///< number of the array; meaningless for one that counts rows

  bool operator==(const GroupedValue&) const = default;
};

}  // namespace kv::runtime

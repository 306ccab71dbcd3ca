#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "exchange/GroupFold.h"
#include "exchange/GroupKeys.h"
#include "kv/runtime/Chunk.h"

namespace kv::runtime {

/// A table of groups as plain values: a column for each part of the keys, then the states of each
/// result, and how to read them.
struct GroupBytes {
  std::string layout{};
  Chunk states{};
};

/// The groups of some rows, with the states of several functions.
///
/// Threads: one at a time.
class GroupTable {
 public:
  explicit GroupTable(std::span<const GroupedValue> values);

  /// Folds rows into the states of their groups, in order. Rows of unknown types are none.
  ///
  /// `arrays`: by number. Requires: the same rows; types and dimensions as of all calls before.
  /// Errors: "KALVEX:function:BadTypes" for a function that isn't defined for the type;
  ///         std::bad_alloc. The table can't be used afterwards.
  void add(const Chunk& keys, std::span<const Chunk> arrays);

  /// Merges the groups of later rows.
  void merge(const GroupTable& later);

  std::int64_t groups() const { return keys_ ? keys_->size() : 0; }

  GroupBytes toBytes() const;

  /// Errors: "KALVEX:executor:BadBytes" for what `toBytes` didn't make with these values.
  static GroupTable fromBytes(std::span<const GroupedValue> values, GroupBytes bytes);

  /// The keys, ascending, and the results, as arrays of a row for each group; keys that are a table
  /// give one.
  /// Errors: those of GroupFold::answers.
  std::vector<Chunk> answers() const;

 private:
  /// One function of an array: a fold for each of its columns.
  struct Value {
    GroupedValue what;
    ElementType type = ElementType::Unknown;  ///< of the array
    Dimensions trailing{};
    std::vector<std::unique_ptr<GroupFold>> columns{};
  };

  void open(const std::vector<ElementType>& keyTypes);
  void openValue(Value& value, ElementType type, Dimensions trailing);

  std::vector<Value> values_;
  std::optional<GroupKeys> keys_;  ///< none before the first rows of known types
  Chunk keyShape_;                 ///< the keys' names or dimensions, without rows
};

}  // namespace kv::runtime

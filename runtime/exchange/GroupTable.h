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
/// result, and how to read them. Tables of one step have the same layout.
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

  /// Notes the types of the rows, before the first are folded.
  /// Result: false if some aren't known, so that there are no rows.
  /// Requires: types and dimensions as of all calls before.
  /// Errors: "KALVEX:function:BadTypes" for a function that isn't defined for the type.
  bool open(const Chunk& keys, std::span<const Chunk> arrays);

  /// Folds rows into the states of their groups, in order.
  ///
  /// `arrays`: by number. Requires: the same rows; `open` was called with them.
  /// Errors: std::bad_alloc. The table can't be used afterwards.
  void add(const Chunk& keys, std::span<const Chunk> arrays);

  /// The same for the rows whose groups are in the table.
  /// Result: the places of the others.
  std::vector<std::uint64_t> addKnown(const Chunk& keys, std::span<const Chunk> arrays);

  /// A table for rows of the same types, without groups.
  GroupTable emptied() const;

  /// Merges the groups of later rows.
  void merge(const GroupTable& later);

  std::int64_t groups() const { return keys_ ? keys_->size() : 0; }

  /// About as much memory as the groups take.
  std::int64_t byteSize() const;

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

  void openLike(const GroupTable& other);
  void fold(std::span<const std::uint32_t> groups, const Chunk& keys,
            std::span<const Chunk> arrays);
  void openValue(Value& value, ElementType type, Dimensions trailing);

  std::vector<Value> values_;
  std::optional<GroupKeys> keys_;  ///< none before the first rows of known types
  Chunk keyShape_;                 ///< the keys' names or dimensions, without rows
};

/// The number of columns of the keys; 0 if their types aren't known.
std::size_t keyColumnsOf(const GroupBytes& bytes);

/// What a chunk is but for its rows.
Chunk withoutRows(const Chunk& chunk);

/// The rows of all arrays in ascending order of the first, the keys.
std::vector<Chunk> inOrderOfKeys(std::vector<Chunk> arrays);

}  // namespace kv::runtime

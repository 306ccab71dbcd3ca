#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "aggregate/FixedTree.h"
#include "exchange/GroupTable.h"
#include "exchange/Scratch.h"

namespace kv::runtime {

/// Into how many files rows and states go, by a hash of their keys.
inline constexpr std::size_t kGroupSlots = 32;

/// The states of groups in files, by slot: those of one slot are never in another.
struct SpilledGroups {
  std::string layout{};                               ///< as of GroupBytes
  std::vector<std::unique_ptr<ScratchFile>> slots{};  ///< null for one without groups
};

/// Splits states by slot and appends them to its file.
void appendBySlot(const GroupBytes& bytes, std::size_t numKeys, Scratch& scratch,
                  std::vector<std::unique_ptr<ScratchFile>>& slots);

/// The hash of each row's key: the same for the same key, in every process.
std::vector<std::uint64_t> keyHashes(std::span<const Column> columns);

/// Folds the rows of one unit by key, in a part of the memory.
///
/// When the table of groups has grown to that part, it is frozen: the groups that it has go on, and
/// rows of other keys go to scratch files by their hash, in order. Each file is folded in the same
/// way after the last row. So each group is folded over its rows in their order, wherever they were
/// meanwhile: no bit of an answer depends on it.
///
/// Threads: one at a time.
class GroupFolder {
 public:
  /// Spills to currentScratch(); never if there is none.
  explicit GroupFolder(std::span<const GroupedValue> values);

  /// As GroupTable::add. Errors: those of ScratchFile::append.
  void add(const Chunk& keys, std::span<const Chunk> arrays);

  /// All groups: in memory, or in files if rows were spilled. The last call.
  struct Groups {
    GroupBytes bytes{};
    std::shared_ptr<const SpilledGroups> spilled{};
  };
  Groups finish();

 private:
  using Files = std::vector<std::unique_ptr<ScratchFile>>;
  struct Level {
    std::unique_ptr<ScratchFile> rows;
    int number = 0;
  };

  bool isFull() const;
  void addRows(const Chunk& keys, std::span<const Chunk> arrays);
  void spill(const Chunk& keys, std::span<const Chunk> arrays, const Column& places);
  void fold(ScratchFile& rows);
  void closeLevel(SpilledGroups& groups);

  std::span<const GroupedValue> values_;
  Scratch* scratch_;
  GroupTable table_;
  bool isFrozen_ = false;
  int level_ = 0;  ///< how often the rows at hand were spilled
  Files files_;    ///< of rows whose keys aren't in the table
  std::deque<Level> waiting_;
  Chunk keyShape_;  ///< of the rows that were spilled
  std::vector<Chunk> arrayShapes_;
};

/// Merges the groups of units, in the order of partitions, in a fixed tree.
///
/// If they don't fit in a part of the memory, or those of a unit were spilled, their states go to
/// scratch files by slot, and are merged slot by slot at the end: in the same tree.
class GroupMerger {
 public:
  explicit GroupMerger(std::span<const GroupedValue> values)
      : values_(values), scratch_(currentScratch()) {}

  void add(GroupFolder::Groups groups);

  /// As GroupTable::answers. The last call.
  std::vector<Chunk> answers();

 private:
  struct Node {
    GroupTable table;
    void merge(const Node& later) { table.merge(later.table); }
  };

  bool isFull() const;
  void spillTree();
  void append(std::int64_t number, const GroupBytes& bytes);
  std::vector<Chunk> answersOfSlot(std::size_t slot);

  std::span<const GroupedValue> values_;
  Scratch* scratch_;
  FixedTree<Node> tree_;
  std::int64_t numAdded_ = 0;
  bool isSpilled_ = false;
  std::string layout_;
  GroupBytes none_{};  ///< of no groups
  std::vector<std::unique_ptr<ScratchFile>> slots_;
  std::vector<std::vector<std::int64_t>> numbers_;  ///< of slots, by batch: of the unit
};

}  // namespace kv::runtime

// A group-by that doesn't fit in memory. The table of groups is frozen when it has grown to a
// unit's share of the limit; from then on, rows of new keys go to one of 32 scratch files by the
// hash of their key. Each file is folded in the same way afterwards, by other bits of the hash, so
// that every group is one fold over its rows in their order, spilled or not. Partitions are merged
// slot by slot.

#include "exchange/GroupFolder.h"

#include <algorithm>
#include <iterator>
#include <utility>

#include "column/MemoryLedger.h"
#include "column/allocate.h"
#include "column/concatenate.h"
#include "column/elementTypes.h"
#include "column/joinChunks.h"
#include "column/pool.h"

#define XXH_INLINE_ALL
#include <xxhash.h>

namespace kv::runtime {

namespace {

/// Rows have been spilled so often only if a hash is as good as constant; then memory has to do.
constexpr int kMostLevels = 6;
constexpr int kSlotBits = 5;
static_assert(kGroupSlots == std::size_t{1} << kSlotBits);

/// A unit's share of the memory: there are several units, and the merge.
constexpr std::int64_t kShares = 8;

/// Groups of a table where everything is spilled, by level: none at first, so that all rows are
/// spilled, and then some.
constexpr std::int64_t kForcedGroups = 64;

/// The slot of a key among those of one level; states use the bits that no level does.
std::size_t slotOf(std::uint64_t hash, int level) {
  return static_cast<std::size_t>(hash >> (kSlotBits * level)) % kGroupSlots;
}
constexpr int kStateLevel = kMostLevels + 1;

std::int64_t limitBytes() {
  const MemoryLedger* ledger = currentLedger();
  return ledger != nullptr ? ledger->limit() : INT64_MAX;
}

Column placesColumn(const std::vector<std::uint64_t>& places) {
  auto buffer = allocateBuffer(std::ssize(places) * static_cast<std::int64_t>(sizeof(places[0])));
  std::ranges::copy(places, buffer->mutable_data_as<std::uint64_t>());
  return {ElementType::UInt64, std::ssize(places), std::move(buffer)};
}

/// Appends rows to the files of their slots.
void appendTo(std::vector<std::unique_ptr<ScratchFile>>& files, Scratch& scratch,
              std::span<const Column> columns, std::span<const std::uint64_t> hashes, int level) {
  files.resize(kGroupSlots);
  std::vector<std::vector<std::uint64_t>> places(kGroupSlots);
  for (std::size_t row = 0; row < hashes.size(); ++row) {
    places[slotOf(hashes[row], level)].push_back(row);
  }
  for (std::size_t slot = 0; slot < kGroupSlots; ++slot) {
    if (places[slot].empty()) {
      continue;
    }
    if (files[slot] == nullptr) {
      files[slot] = scratch.open();
    }
    const Column rows = placesColumn(places[slot]);
    std::vector<Column> taken;
    std::ranges::transform(columns, std::back_inserter(taken),
                           [&](const Column& column) { return takeRows(column, rows); });
    files[slot]->append(taken);
  }
}

/// The columns as chunks of these shapes.
Chunk likeShape(const Chunk& shape, std::span<const Column>& columns) {
  Chunk chunk{.names = shape.names, .trailing = shape.trailing};
  for (const Column& like : shape.columns) {
    chunk.columns.push_back(like.isNullable() ? columns.front().asNullable() : columns.front());
    columns = columns.subspan(1);
  }
  chunk.ordinals = RowOrdinals(0, chunk.columns.front().rows());
  return chunk;
}

}  // namespace

std::vector<std::uint64_t> keyHashes(std::span<const Column> columns) {
  std::vector<std::uint64_t> hashes(static_cast<std::size_t>(columns.front().rows()), 0);
  const auto add = [](std::uint64_t& hash, const void* bytes, std::size_t size) {
    hash = XXH3_64bits_withSeed(bytes, size, hash);
  };
  constexpr char kMissing[] = "missing";
  for (const Column& key : columns) {
    const Column column = canonicalKeys(key);
    for (std::size_t row = 0; row < hashes.size(); ++row) {
      if (column.isNull(static_cast<std::int64_t>(row))) {
        add(hashes[row], kMissing, sizeof(kMissing));
      } else if (column.type() == ElementType::String) {
        const std::string_view text = column.text(static_cast<std::int64_t>(row));
        add(hashes[row], text.data(), text.size());
      }
    }
    if (column.type() != ElementType::String) {
      visitNumeric(column.type(), [&]<class T>() {
        const auto values = column.values<T>();
        for (std::size_t row = 0; row < hashes.size(); ++row) {
          if (!column.isNull(static_cast<std::int64_t>(row))) {
            add(hashes[row], &values[row], sizeof(T));
          }
        }
      });
    }
  }
  return hashes;
}

void appendBySlot(const GroupBytes& bytes, std::size_t numKeys, Scratch& scratch,
                  std::vector<std::unique_ptr<ScratchFile>>& slots) {
  const std::span columns(bytes.states.columns);
  if (bytes.states.rows() > 0) {
    appendTo(slots, scratch, columns, keyHashes(columns.first(numKeys)), kStateLevel);
  }
}

GroupFolder::GroupFolder(std::span<const GroupedValue> values)
    : values_(values), scratch_(currentScratch()), table_(values) {}

bool GroupFolder::isFull() const {
  if (scratch_ == nullptr || level_ == kMostLevels) {
    return false;
  }
  if (scratch_->spillsAlways()) {
    return table_.groups() >= level_ * kForcedGroups;
  }
  return table_.byteSize() > limitBytes() / kShares;
}

void GroupFolder::add(const Chunk& keys, std::span<const Chunk> arrays) {
  if (table_.open(keys, arrays) && keys.rows() > 0) {
    addRows(keys, arrays);
  }
}

void GroupFolder::addRows(const Chunk& keys, std::span<const Chunk> arrays) {
  isFrozen_ = isFrozen_ || isFull();
  if (!isFrozen_) {
    table_.add(keys, arrays);
    return;
  }
  const std::vector<std::uint64_t> unknown = table_.addKnown(keys, arrays);
  if (!unknown.empty()) {
    spill(keys, arrays, placesColumn(unknown));
  }
}

void GroupFolder::spill(const Chunk& keys, std::span<const Chunk> arrays, const Column& places) {
  std::vector<Column> columns;
  if (arrayShapes_.empty()) {
    keyShape_ = withoutRows(keys);
    std::ranges::transform(arrays, std::back_inserter(arrayShapes_), withoutRows);
  }
  const auto take = [&](const Chunk& chunk) {
    for (const Column& column : chunk.columns) {
      columns.push_back(takeRows(column, places));
    }
  };
  take(keys);
  std::ranges::for_each(arrays, take);
  const auto hashes = keyHashes(std::span(columns).first(keys.columns.size()));
  scratch_->noteLevel(level_ + 1);
  appendTo(files_, *scratch_, columns, hashes, level_);
}

void GroupFolder::fold(ScratchFile& rows) {
  while (const std::optional<std::vector<Column>> batch = rows.next()) {
    std::span<const Column> columns(*batch);
    const Chunk keys = likeShape(keyShape_, columns);
    std::vector<Chunk> arrays;
    for (const Chunk& shape : arrayShapes_) {
      arrays.push_back(likeShape(shape, columns));
    }
    addRows(keys, arrays);
  }
}

/// Takes the groups of a table that gets no more rows, and lets the files that were made for it
/// wait.
void GroupFolder::closeLevel(SpilledGroups& groups) {
  const GroupBytes bytes = table_.toBytes();
  groups.layout = bytes.layout;
  appendBySlot(bytes, keyShape_.columns.size(), *scratch_, groups.slots);
  for (std::unique_ptr<ScratchFile>& file : files_) {
    if (file != nullptr) {
      waiting_.push_back({std::move(file), level_ + 1});
    }
  }
  files_.clear();
}

GroupFolder::Groups GroupFolder::finish() {
  if (files_.empty()) {
    return {table_.toBytes()};
  }
  const auto groups = std::make_shared<SpilledGroups>();
  closeLevel(*groups);
  while (!waiting_.empty()) {
    const Level next = std::move(waiting_.front());
    waiting_.pop_front();
    table_ = table_.emptied();
    isFrozen_ = false;
    level_ = next.number;
    fold(*next.rows);
    closeLevel(*groups);
  }
  return {.spilled = groups};
}

void GroupMerger::add(GroupFolder::Groups groups) {
  const std::int64_t number = numAdded_++;
  if (groups.spilled != nullptr) {
    spillTree();
    layout_ = groups.spilled->layout;
    for (std::size_t slot = 0; slot < groups.spilled->slots.size(); ++slot) {
      ScratchFile* file = groups.spilled->slots[slot].get();
      while (const auto batch = file != nullptr ? file->next() : std::nullopt) {
        if (slots_[slot] == nullptr) {
          slots_[slot] = scratch_->open();
        }
        slots_[slot]->append(*batch);
        numbers_[slot].push_back(number);
      }
    }
    return;
  }
  if (isFull()) {
    spillTree();
  }
  if (isSpilled_) {
    append(number, groups.bytes);
  } else {
    tree_.push(number, {GroupTable::fromBytes(values_, std::move(groups.bytes))});
  }
}

bool GroupMerger::isFull() const {
  if (scratch_ == nullptr || isSpilled_) {
    return false;
  }
  std::int64_t bytes = 0;
  tree_.forEach([&](const Node& node) { bytes += node.table.byteSize(); });
  return scratch_->spillsAlways() || bytes > limitBytes() / kShares;
}

/// The nodes of the tree are those that stay apart until the end: pushed under their numbers, they
/// are merged with later ones as they would have been.
void GroupMerger::spillTree() {
  if (isSpilled_) {
    return;
  }
  isSpilled_ = true;
  slots_.resize(kGroupSlots);
  numbers_.resize(kGroupSlots);
  for (auto& [number, node] : tree_.takeNodes()) {
    append(number, node.table.toBytes());
  }
}

void GroupMerger::append(std::int64_t number, const GroupBytes& bytes) {
  const std::size_t numKeys = keyColumnsOf(bytes);
  if (numKeys == 0) {
    return;
  }
  layout_ = bytes.layout;
  none_ = {bytes.layout, slice(bytes.states, 0, 0)};
  appendBySlot(bytes, numKeys, *scratch_, slots_);
  for (std::size_t slot = 0; slot < kGroupSlots; ++slot) {
    if (slots_[slot] != nullptr) {
      numbers_[slot].resize(slots_[slot]->numBatches(), number);
    }
  }
}

std::vector<Chunk> GroupMerger::answersOfSlot(std::size_t slot) {
  FixedTree<Node> tree;
  std::optional<Node> leaf;
  const std::unique_ptr<ScratchFile> file = std::move(slots_[slot]);
  for (std::size_t i = 0; i < numbers_[slot].size(); ++i) {
    std::vector<Column> columns = *file->next();
    Chunk states{.ordinals = RowOrdinals(0, columns.front().rows()), .columns = std::move(columns)};
    Node node{GroupTable::fromBytes(values_, {layout_, std::move(states)})};
    if (leaf && numbers_[slot][i] == numbers_[slot][i - 1]) {
      leaf->merge(node);
      continue;
    }
    if (leaf) {
      tree.push(numbers_[slot][i - 1], *std::exchange(leaf, std::nullopt));
    }
    leaf = std::move(node);
  }
  tree.push(numbers_[slot].back(), *std::move(leaf));
  return tree.finish()->table.answers();
}

std::vector<Chunk> GroupMerger::answers() {
  if (!isSpilled_) {
    const std::optional<Node> root = tree_.finish();
    return root ? root->table.answers() : GroupTable(values_).answers();
  }
  std::vector<std::vector<Chunk>> parts(values_.size() + 1);
  for (std::size_t slot = 0; slot < kGroupSlots; ++slot) {
    if (slots_[slot] == nullptr) {
      continue;
    }
    std::vector<Chunk> arrays = answersOfSlot(slot);
    for (std::size_t i = 0; i < arrays.size(); ++i) {
      parts[i].push_back(std::move(arrays[i]));
    }
  }
  if (parts.front().empty()) {
    return none_.layout.empty() ? GroupTable(values_).answers()
                                : GroupTable::fromBytes(values_, std::move(none_)).answers();
  }
  std::vector<Chunk> arrays;
  for (std::vector<Chunk>& part : parts) {
    arrays.push_back(joinChunks(std::move(part)));
  }
  return inOrderOfKeys(std::move(arrays));
}

}  // namespace kv::runtime

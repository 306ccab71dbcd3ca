#pragma once

#include <algorithm>
#include <cassert>
#include <cstddef>
#include <cstdint>
#include <optional>

#include "aggregate/FixedTree.h"
#include "aggregate/reductionLanes.h"
#include "kv/runtime/Chunk.h"

namespace kv::runtime {

/// Adds values to the block and lane of their ordinal, and blocks to the tree over all blocks.
template <class Lanes>
class BlockedReduction {
 public:
  using Value = typename Lanes::Value;

  /// Adds the values of rows [firstRow, firstRow + count) of `ordinals`.
  void add(const double* values, const RowOrdinals& ordinals, std::int64_t firstRow,
           std::int64_t count) {
    if (count > 0 && ordinals.isRange()) {
      addRange(values, ordinals.at(firstRow), count);
    } else {
      addList(values, ordinals, firstRow, count);
    }
  }

  Value finish() {
    closeBlock();
    return tree_.finish().value_or(Value{});
  }

 private:
  static constexpr std::int64_t kNoBlock = -1;

  static std::size_t laneOf(std::int64_t ordinal) {
    return static_cast<std::size_t>(ordinal % kReductionLanes);
  }

  void addList(const double* values, const RowOrdinals& ordinals, std::int64_t firstRow,
               std::int64_t count) {
    for (std::int64_t row = 0; row < count; ++row) {
      const std::int64_t ordinal = ordinals.at(firstRow + row);
      openBlock(ordinal / kReductionBlock);
      lanes_.add(laneOf(ordinal), values[row]);
    }
  }

  void addRange(const double* values, std::int64_t ordinal, std::int64_t count) {
    while (count > 0) {
      openBlock(ordinal / kReductionBlock);
      const std::int64_t part = std::min(count, kReductionBlock - ordinal % kReductionBlock);
      addPart(values, ordinal, part);
      values += part;
      ordinal += part;
      count -= part;
    }
  }

  /// Adds a run of ordinals within the open block: whole groups of lanes at once, the remainder one
  /// by one.
  void addPart(const double* values, std::int64_t ordinal, std::int64_t count) {
    const double* end = values + count;
    while (values < end && laneOf(ordinal) != 0) {
      lanes_.add(laneOf(ordinal++), *values++);
    }
    const std::size_t groups = static_cast<std::size_t>(end - values) / kLanes;
    lanes_.addGroups(values, groups);
    values += groups * kLanes;
    for (std::size_t lane = 0; values < end; ++lane) {
      lanes_.add(lane, *values++);
    }
  }

  void openBlock(std::int64_t block) {
    if (block == block_) {
      return;
    }
    assert(block > block_);
    closeBlock();
    block_ = block;
  }

  void closeBlock() {
    if (block_ != kNoBlock) {
      tree_.push(block_, lanes_.close());
    }
    block_ = kNoBlock;
  }

  std::int64_t block_ = kNoBlock;
  Lanes lanes_;
  FixedTree<Value> tree_;
};

}  // namespace kv::runtime

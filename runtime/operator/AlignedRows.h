#pragma once

#include <cassert>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string_view>
#include <utility>
#include <vector>

#include "column/ChunkBuffer.h"
#include "operator/runs.h"

namespace kv::runtime {

/// What made each input, for messages.
std::vector<std::string_view> originsOf(std::span<const FlowInput> inputs);

/// The waiting rows of several inputs that have the same rows, cut differently.
class AlignedRows {
 public:
  /// `origins`: what made each input, for messages.
  /// Requires: at least one input.
  explicit AlignedRows(std::vector<std::string_view> origins)
      : origins_(std::move(origins)), waiting_(origins_.size()), isEnded_(origins_.size(), false) {
    assert(!origins_.empty());
  }

  void push(std::size_t input, const Chunk& rows);
  void finishInput(std::size_t input) { isEnded_[input] = true; }

  /// Rows that all inputs have.
  std::int64_t rows() const;

  /// The first rows that all inputs have in one chunk each: they can be taken without a copy.
  std::int64_t frontRows() const;

  /// True if all inputs have ended.
  bool isAtEnd() const;

  /// The first `count` rows, a chunk of each input; at the end, none if all have been taken, or one
  /// without rows if there were none at all.
  /// Requires: 1 <= count <= rows(), or isAtEnd() and count == 0.
  /// Errors: "KALVEX:array:RowsDiffer" with the origins of two inputs whose rows differ.
  std::optional<std::vector<Chunk>> take(std::int64_t count);

  /// How many rows are in the next frame: `frameRows` of them, or fewer at the end; 0 until they
  /// have come. `frameRows` is 0 until it is known: then as many as pieceRows() gives.
  std::int64_t rowsOfFrame(std::int64_t& frameRows) const;

  /// The types of the columns of all inputs, as far as they are known.
  std::vector<ElementType> types() const;

 private:
  [[noreturn]] void refuse(std::size_t input) const;

  std::vector<std::string_view> origins_;
  std::vector<ChunkBuffer> waiting_;  ///< by input
  std::vector<bool> isEnded_;         ///< by input
  std::vector<std::optional<Chunk>> withoutRows_ =
      std::vector<std::optional<Chunk>>(origins_.size());  ///< of each input, with its types
  bool hasTaken_ = false;
};

/// A flow step whose output i has the rows of input i, which are cut anew.
class AlignedFlow : public FlowRun {
 public:
  explicit AlignedFlow(std::vector<std::string_view> origins) : waiting_(std::move(origins)) {}

  void push(std::size_t input, const Chunk& rows) final { waiting_.push(input, rows); }
  void finishInput(std::size_t input) final { waiting_.finishInput(input); }
  std::optional<std::vector<Chunk>> next() final;

 private:
  /// How many rows to emit at once; 0 to wait for more.
  virtual std::int64_t rowsToEmit(const AlignedRows& waiting) = 0;

  AlignedRows waiting_;
};

}  // namespace kv::runtime

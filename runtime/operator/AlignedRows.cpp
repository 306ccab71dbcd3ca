#include "operator/AlignedRows.h"

#include <algorithm>
#include <array>
#include <cassert>
#include <string>
#include <utility>

#include "column/concatenate.h"
#include "column/pieces.h"
#include "kv/errors/StepError.h"

namespace kv::runtime {

std::vector<std::string_view> originsOf(std::span<const FlowInput> inputs) {
  std::vector<std::string_view> origins;
  for (const FlowInput& input : inputs) {
    origins.push_back(input.origin);
  }
  return origins;
}

void AlignedRows::push(std::size_t input, const Chunk& rows) {
  if (!hasTaken_) {
    std::optional<Chunk>& empty = withoutRows_[input];
    const Chunk latest = slice(rows, 0, 0);
    empty = empty ? concatenate(std::array{*empty, latest}) : latest;
  }
  waiting_[input].push(rows);
}

std::int64_t AlignedRows::rows() const {
  return std::ranges::min_element(waiting_, {}, &ChunkBuffer::rows)->rows();
}

std::int64_t AlignedRows::frontRows() const {
  return std::ranges::min_element(waiting_, {}, &ChunkBuffer::frontRows)->frontRows();
}

bool AlignedRows::isAtEnd() const { return std::ranges::find(isEnded_, false) == isEnded_.end(); }

std::optional<std::vector<Chunk>> AlignedRows::take(std::int64_t count) {
  assert(count >= 0 && count <= rows());
  assert(count > 0 || isAtEnd());
  std::vector<Chunk> taken;
  if (count == 0) {
    for (std::size_t input = 0; input < waiting_.size(); ++input) {
      if (waiting_[input].rows() > 0) {
        refuse(input);
      }
      taken.push_back(withoutRows_[input].value());
    }
  }
  for (std::size_t input = 0; count > 0 && input < waiting_.size(); ++input) {
    taken.push_back(waiting_[input].take(count));
    if (!haveSameRows(taken.front().ordinals, taken.back().ordinals)) {
      refuse(input);
    }
  }
  const bool isNews = count > 0 || !hasTaken_;
  hasTaken_ = true;
  return isNews ? std::optional(std::move(taken)) : std::nullopt;
}

std::int64_t AlignedRows::rowsOfFrame(std::int64_t& frameRows) const {
  if (frameRows == 0 && rows() > 0) {
    frameRows = pieceRows(types());  // of inputs with rows the types are known
  }
  const bool isFull = frameRows > 0 && rows() >= frameRows;
  return isFull ? frameRows : isAtEnd() ? rows() : 0;
}

std::vector<ElementType> AlignedRows::types() const {
  std::vector<ElementType> types;
  for (const std::optional<Chunk>& chunk : withoutRows_) {
    for (const Column& column : chunk ? chunk->columns : std::vector<Column>{}) {
      types.push_back(column.type());
    }
  }
  return types;
}

/// The rows of an input that differ from those of the first, or of one that has fewer.
void AlignedRows::refuse(std::size_t input) const {
  const auto least = std::ranges::min_element(waiting_, {}, &ChunkBuffer::rows) - waiting_.begin();
  const std::size_t other = input > 0 ? 0 : static_cast<std::size_t>(least);
  errors::raiseStep("KALVEX:array:RowsDiffer", {std::string(origins_[std::min(input, other)]),
                                                std::string(origins_[std::max(input, other)]), ""});
}

std::optional<std::vector<Chunk>> AlignedFlow::next() {
  const std::int64_t rows = rowsToEmit(waiting_);
  return rows > 0 || waiting_.isAtEnd() ? waiting_.take(rows) : std::nullopt;
}

}  // namespace kv::runtime

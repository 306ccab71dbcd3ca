#pragma once

#include <cstdint>
#include <deque>

#include "kv/runtime/Chunk.h"

namespace kv::runtime {

/// Rows of one partition that wait until enough have come: cuts chunks anew.
class ChunkBuffer {
 public:
  /// Requires: the columns are those of the chunks before, and the rows come after theirs.
  void push(Chunk chunk);

  std::int64_t rows() const { return rows_; }

  /// Rows of the first chunk, which can be taken without a copy; 0 if there are none.
  std::int64_t frontRows() const { return chunks_.empty() ? 0 : chunks_.front().rows(); }

  /// The first `count` rows, which leave the buffer.
  /// Requires: 1 <= count <= rows().
  Chunk take(std::int64_t count);

 private:
  std::deque<Chunk> chunks_;  ///< none without rows
  std::int64_t rows_ = 0;
};

}  // namespace kv::runtime

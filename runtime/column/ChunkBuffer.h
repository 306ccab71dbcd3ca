#pragma once

#include <cstdint>
#include <deque>

#include "kv/runtime/Chunk.h"

namespace kv::runtime {

/// Rows of one partition that wait until there are as many as someone needs: cuts chunks anew.
class ChunkBuffer {
 public:
  /// Requires: the columns are those of the chunks before, and the rows come after theirs.
  void push(Chunk chunk);

  std::int64_t rows() const { return rows_; }

  /// The first `count` rows, which leave the buffer.
  /// Requires: 1 <= count <= rows().
  Chunk take(std::int64_t count);

 private:
  std::deque<Chunk> chunks_;  ///< none without rows
  std::int64_t rows_ = 0;
};

}  // namespace kv::runtime

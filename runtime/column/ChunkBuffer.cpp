#include "column/ChunkBuffer.h"

#include <cassert>
#include <utility>
#include <vector>

#include "column/concatenate.h"

namespace kv::runtime {

void ChunkBuffer::push(Chunk chunk) {
  if (chunk.rows() > 0) {
    assert(chunks_.empty() || chunks_.back().columns.size() == chunk.columns.size());
    rows_ += chunk.rows();
    chunks_.push_back(std::move(chunk));
  }
}

Chunk ChunkBuffer::take(std::int64_t count) {
  assert(count >= 1 && count <= rows_);
  rows_ -= count;
  std::vector<Chunk> parts;
  while (count > 0) {
    Chunk& front = chunks_.front();
    const std::int64_t rows = front.rows();
    if (rows > count) {
      parts.push_back(slice(front, 0, count));
      front = slice(front, count, rows - count);
      count = 0;
    } else {
      parts.push_back(std::move(front));
      chunks_.pop_front();
      count -= rows;
    }
  }
  return concatenate(parts);
}

}  // namespace kv::runtime

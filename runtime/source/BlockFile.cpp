#include "source/BlockFile.h"

#include <algorithm>

namespace kv::runtime {

std::vector<BlockRun> BlockFile::partitions(std::int64_t partitionBytes) const {
  std::vector<BlockRun> runs(1);
  std::int64_t bytes = 0;
  for (std::int32_t i = 0; i < std::ssize(blocks); ++i) {
    const Block& block = blocks[static_cast<std::size_t>(i)];
    BlockRun* run = &runs.back();
    if (!isOneRun && run->first < run->end && block.bytes > partitionBytes - bytes) {
      runs.push_back({i, i, run->firstRow + run->rows});
      run = &runs.back();
      bytes = 0;
    }
    run->end = i + 1;
    run->rows += block.rows;
    run->largest = std::max(run->largest, block.bytes);
    bytes += std::min(block.bytes, partitionBytes);
  }
  return runs;
}

}  // namespace kv::runtime

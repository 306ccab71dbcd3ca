#include "kv/runtime/Datastore.h"

#include <algorithm>
#include <cassert>
#include <iterator>

namespace kv::runtime {

Chunk Datastore::emptyChunk(std::int64_t partition, const std::vector<std::string>& columns) const {
  Chunk chunk;
  chunk.partition = partition;
  chunk.names = std::make_shared<const std::vector<std::string>>(columns);
  for (const std::string& name : columns) {
    const auto found = std::ranges::find(schema(), name, &ColumnInfo::name);
    assert(found != schema().end());
    const Column column = emptyColumn(found->type);
    chunk.columns.push_back(found->isNullable ? column.asNullable() : column);
  }
  return chunk;
}

/// A chunk that is passed on, and the next one.
std::int64_t Datastore::estimateBytes(std::int64_t /*partition*/,
                                      const std::vector<std::string>& columns) const {
  return 2 * kChunkBytesPerColumn * std::ssize(columns);
}

}  // namespace kv::runtime

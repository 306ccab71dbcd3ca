#include "kv/runtime/Datastore.h"

#include <algorithm>
#include <cassert>
#include <iterator>

namespace kv::runtime {

std::unique_ptr<ChunkReader> Datastore::openPartitionWhere(
    std::int64_t partition, const std::vector<std::string>& columns,
    [[maybe_unused]] const std::vector<RowCondition>& conditions,
    const CancellationToken& cancellation) const {
  assert(canCheck(conditions));
  return openPartition(partition, columns, cancellation);
}

bool Datastore::canCheck(const std::vector<RowCondition>& conditions) const {
  return std::ranges::all_of(conditions, [this](const RowCondition& condition) {
    const auto column = std::ranges::find(schema(), condition.column, &ColumnInfo::name);
    return column != schema().end() && column->isReadable();
  });
}

Chunk Datastore::emptyChunk(std::int64_t partition, const std::vector<std::string>& columns) const {
  Chunk chunk;
  chunk.partition = partition;
  chunk.names = std::make_shared<const std::vector<std::string>>(columns);
  for (const std::string& name : columns) {
    const auto found = std::ranges::find(schema(), name, &ColumnInfo::name);
    assert(found != schema().end() && found->isReadable());
    const Column column = emptyColumn(found->type);
    chunk.columns.push_back(found->isNullable ? column.asNullable() : column);
  }
  return chunk;
}

/// A chunk that is passed on, and the next one.
std::int64_t Datastore::estimateBytes([[maybe_unused]] std::int64_t partition,
                                      const std::vector<std::string>& columns) const {
  assert(partition >= 0 && partition < numPartitions());
  assert(std::ranges::all_of(columns, [this](const std::string& name) {
    return std::ranges::find(schema(), name, &ColumnInfo::name) != schema().end();
  }));
  return 2 * kChunkBytesPerColumn * std::ssize(columns);
}

}  // namespace kv::runtime

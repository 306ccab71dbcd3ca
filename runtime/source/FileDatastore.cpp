#include "source/FileDatastore.h"

#include <algorithm>
#include <cassert>
#include <iterator>
#include <utility>

#include "column/concatenate.h"

namespace kv::runtime {

std::vector<std::string> FileDatastore::files() const {
  std::vector<std::string> paths;
  std::ranges::transform(table().files, std::back_inserter(paths), &SourceFile::path);
  return paths;
}

Chunk FileDatastore::preview(std::int64_t rows) const {
  assert(rows >= 0);
  std::vector<std::string> columns;
  Chunk none;
  for (const ColumnInfo& info : schema()) {
    if (info.isReadable()) {
      columns.push_back(info.name);
      none.columns.push_back(emptyColumn(info.type));
    }
  }
  const CancellationToken never;
  for (std::int64_t partition = 0; partition < numPartitions(); ++partition) {
    if (auto chunk = openPartition(partition, columns, never)->next()) {
      return slice(*chunk, 0, std::min(rows, chunk->rows()));
    }
  }
  none.names = std::make_shared<const std::vector<std::string>>(std::move(columns));
  return none;
}

}  // namespace kv::runtime

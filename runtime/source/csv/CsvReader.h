#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "kv/runtime/Datastore.h"
#include "source/csv/CsvBlocks.h"
#include "source/csv/CsvColumn.h"

namespace kv::runtime {

/// Reads one CSV file as a partition, one chunk per block. Columns that aren't requested are split
/// into fields but not converted.
class CsvReader final : public ChunkReader {
 public:
  /// Requires: `columns` are in `schema`; `cancellation` outlives the reader.
  /// Errors:   "KALVEX:datastore:SourceChanged" if `file` isn't as recorded or has other
  ///           columns than `schema`, "KALVEX:datastore:UnknownColumn"; as for CsvBlocks.
  CsvReader(const SourceFile& file, std::int64_t partition, const Schema& schema,
            const std::vector<std::string>& columns, const CancellationToken& cancellation);

  std::optional<Chunk> next() override;

 private:
  CsvBlocks blocks_;
  std::int64_t partition_;
  std::shared_ptr<const std::vector<std::string>> names_;
  Schema infos_;  ///< of the requested columns
  std::vector<CsvColumn> columns_;
  const CancellationToken& cancellation_;
};

}  // namespace kv::runtime

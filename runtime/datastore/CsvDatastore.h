#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "datastore/SourceFile.h"
#include "kv/runtime/Datastore.h"
#include "kv/runtime/csv.h"

namespace kv::runtime {

/// CSV files that make one table, a partition a file; see openCsv() for format, types and errors.
class CsvDatastore final : public Datastore {
 public:
  /// Requires: `paths` isn't empty.
  CsvDatastore(const std::vector<std::string>& paths, const std::vector<TypeOverride>& types);

  const Schema& schema() const override { return table_->schema; }
  std::int64_t numPartitions() const override;
  std::unique_ptr<ChunkReader> openPartition(std::int64_t partition,
                                             const std::vector<std::string>& columns,
                                             const CancellationToken& cancellation) const override;
  Chunk preview(std::int64_t rows) const override;
  std::unique_ptr<Datastore> copy() const override;
  std::string fingerprint() const override;
  std::string displayName() const override { return table_->name; }

 private:
  struct Table {
    std::string name;
    std::vector<SourceFile> files;
    Schema schema;
  };

  /// Immutable, so copies share it.
  std::shared_ptr<const Table> table_;
};

}  // namespace kv::runtime

#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "kv/runtime/Datastore.h"
#include "kv/runtime/csv.h"
#include "source/SourceFile.h"

namespace kv::runtime {

/// CSV files that form one table, one partition per file; see openCsv() for format, types and
/// errors.
class CsvDatastore final : public Datastore {
 public:
  /// Everything about the files except their rows.
  struct Table {
    std::string name;  ///< the user's name for them
    std::vector<SourceFile> files;
    Schema schema;
  };

  /// Requires: `paths` isn't empty.
  CsvDatastore(const std::vector<std::string>& paths, const std::vector<TypeOverride>& types);

  /// The table with this description; opens nothing. Each file is compared with its description
  /// when it is read.
  ///
  /// Requires: at least one file; names of columns are distinct.
  explicit CsvDatastore(Table table);

  const Table& table() const { return *table_; }

  const Schema& schema() const override { return table_->schema; }
  std::int64_t numPartitions() const override;
  std::unique_ptr<ChunkReader> openPartition(std::int64_t partition,
                                             const std::vector<std::string>& columns,
                                             const CancellationToken& cancellation) const override;
  Chunk preview(std::int64_t rows) const override;
  std::unique_ptr<Datastore> copy() const override;
  const std::string& fingerprint() const override { return fingerprint_; }
  std::string describe() const override;
  std::string displayName() const override { return table_->name; }

 private:
  /// Immutable, so copies share it.
  std::shared_ptr<const Table> table_;
  std::string fingerprint_;
};

}  // namespace kv::runtime

#pragma once

#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "kv/runtime/files.h"
#include "source/FileDatastore.h"
#include "source/parquet/ParquetFooter.h"

namespace kv::runtime {

/// The first text of a description of Parquet files.
inline constexpr std::string_view kParquetFormat = "parquet";

/// Everything about Parquet files that form one table except their rows.
struct ParquetTable {
  /// What is known of a file without opening it again.
  struct File {
    std::string footerHash;
    std::vector<RowGroups> partitions;
  };

  FileTable common;
  std::vector<File> files;  ///< one for each file of `common`
  std::int64_t partitionBytes = kParquetPartitionBytes;
};

/// Parquet files that form one table; see openParquet() for partitions, types and errors.
class ParquetDatastore final : public FileDatastore {
 public:
  /// `partitionBytes`: for tests, to cut small files.
  explicit ParquetDatastore(const std::vector<std::string>& paths,
                            const std::vector<TypeOverride>& types = {},
                            std::int64_t partitionBytes = kParquetPartitionBytes);

  /// The table with this description; opens nothing. Each file is compared with its description
  /// when it is read.
  explicit ParquetDatastore(ParquetTable table);

  const FileTable& table() const override;
  std::int64_t numPartitions() const override;
  std::unique_ptr<ChunkReader> openPartition(std::int64_t partition,
                                             const std::vector<std::string>& columns,
                                             const CancellationToken& cancellation) const override;
  std::optional<std::int64_t> knownRows(std::int64_t partition) const override;
  std::size_t fileNumber(std::int64_t partition) const override;
  std::int64_t estimateBytes(std::int64_t partition,
                             const std::vector<std::string>& columns) const override;
  bool canSkipRows() const override { return true; }
  std::unique_ptr<ChunkReader> openPartitionWhere(
      std::int64_t partition, const std::vector<std::string>& columns,
      const std::vector<RowCondition>& conditions,
      const CancellationToken& cancellation) const override;
  std::unique_ptr<Datastore> copy() const override;
  const std::string& fingerprint() const override;
  std::string describe() const override;
  std::shared_ptr<const FileDatastore> openOthers(
      const std::vector<std::string>& paths) const override;
  std::shared_ptr<const FileDatastore> withFiles(std::string name, const FileDatastore& others,
                                                 std::span<const FileOf> files) const override;

  /// The description to save: a file that is gone is reported as one that a save recorded.
  std::string describeForSave() const;

 private:
  struct Opening;
  struct State;
  explicit ParquetDatastore(Opening opened);

  /// Copies share it.
  std::shared_ptr<State> state_;
};

/// Reads what follows the name of the format in a description.
/// Errors: "KALVEX:executor:BadBytes".
std::shared_ptr<const Datastore> openDescribedParquet(ByteReader& description);

}  // namespace kv::runtime

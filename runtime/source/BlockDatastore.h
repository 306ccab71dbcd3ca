#pragma once

#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "column/bytes.h"
#include "kv/runtime/files.h"
#include "source/BlockFile.h"
#include "source/FileDatastore.h"

namespace kv::runtime {

/// Everything about files of blocks that form one table except their rows.
struct BlockFiles {
  /// What is known of a file without opening it again.
  struct File {
    std::string hash;  ///< see BlockFile
    std::vector<BlockRun> partitions;
  };

  FileTable common;
  std::vector<File> files;  ///< one for each file of `common`
  std::int64_t partitionBytes = kBlockPartitionBytes;
};

/// Files of one format that consist of blocks, and form one table: partitions are runs of blocks.
class BlockDatastore final : public FileDatastore {
 public:
  /// `format`: lives as long as the process. `partitionBytes`: for tests, to cut small files.
  BlockDatastore(const BlockFormat& format, const std::vector<std::string>& paths,
                 const std::vector<TypeOverride>& types = {},
                 std::int64_t partitionBytes = kBlockPartitionBytes);

  /// The table with this description; opens nothing. Each file is compared with its description
  /// when it is read.
  BlockDatastore(const BlockFormat& format, BlockFiles table);

  const BlockFormat& format() const { return *format_; }
  const FileTable& table() const override;
  std::int64_t numPartitions() const override;
  std::unique_ptr<ChunkReader> openPartition(std::int64_t partition,
                                             const std::vector<std::string>& columns,
                                             const CancellationToken& cancellation) const override;
  std::optional<std::int64_t> knownRows(std::int64_t partition) const override;
  std::size_t fileNumber(std::int64_t partition) const override;
  std::int64_t estimateBytes(std::int64_t partition,
                             const std::vector<std::string>& columns) const override;
  bool canSkipRows() const override { return format_->canSkipBlocks; }
  std::unique_ptr<ChunkReader> openPartitionWhere(
      std::int64_t partition, const std::vector<std::string>& columns,
      const std::vector<RowCondition>& conditions,
      const CancellationToken& cancellation) const override;
  std::unique_ptr<Datastore> copy() const override;
  const std::string& fingerprint() const override;
  std::string describe() const override;

  /// The description to save: a file that is gone is reported as one that a save recorded.
  std::string describeForSave() const;
  std::shared_ptr<const FileDatastore> openOthers(
      const std::vector<std::string>& paths) const override;
  std::shared_ptr<const FileDatastore> withFiles(std::string name, const FileDatastore& others,
                                                 std::span<const FileOf> files) const override;

 private:
  struct Opening;
  struct State;
  BlockDatastore(const BlockFormat& format, Opening opened);

  const BlockFormat* format_;
  /// Copies share it.
  std::shared_ptr<State> state_;
};

/// Reads what follows the name of the format in a description.
/// Errors: "KALVEX:executor:BadBytes".
std::shared_ptr<const Datastore> openDescribedBlocks(const BlockFormat& format,
                                                     ByteReader& description);

}  // namespace kv::runtime

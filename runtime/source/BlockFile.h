#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "kv/runtime/Datastore.h"
#include "source/ArrowInput.h"

namespace kv::runtime {

/// Bytes up to which consecutive blocks of a file form one partition.
inline constexpr std::int64_t kBlockPartitionBytes = 64 << 20;

/// Blocks [first, end) of a file, which form a partition.
struct BlockRun {
  std::int32_t first = 0;
  std::int32_t end = 0;
  std::int64_t firstRow = 0;  ///< in the file, counted from 0
  std::int64_t rows = 0;
  std::int64_t largest = 0;  ///< bytes of the largest block, uncompressed if the file says so

  bool operator==(const BlockRun&) const = default;
};

/// A file that consists of blocks of rows, by what it says about itself: row groups of Parquet,
/// record batches of Arrow IPC. Immutable.
struct BlockFile {
  struct Block {
    std::int64_t rows = 0;
    std::int64_t bytes = 0;
  };

  virtual ~BlockFile() = default;

  std::string hash;  ///< of the bytes from which all this was read
  Schema schema;     ///< names are made distinct, see distinctNames()
  std::vector<Block> blocks;
  bool isOneRun = false;  ///< must be read from the first block to the last

  /// The partitions of the file, at least one: runs of blocks, each of at most `partitionBytes`
  /// bytes unless it is one block.
  std::vector<BlockRun> partitions(std::int64_t partitionBytes) const;
};

/// A partition of such files, and what is read of it.
struct BlockRequest {
  std::int64_t partition = 0;            ///< of the table
  BlockRun blocks;                       ///< of the file
  Schema columns;                        ///< of the file that are requested, in that order
  std::vector<RowCondition> conditions;  ///< blocks without a row that fulfils them may be skipped
  arrow::MemoryPool* pool = nullptr;
};

/// How files of one format are opened and read.
struct BlockFormat {
  std::string_view name;   ///< the first text of its descriptions
  std::string_view shown;  ///< for messages
  std::span<const std::string_view> endings;
  std::span<const std::string_view> magics;  ///< how its files begin
  bool canSkipBlocks = false;

  /// Errors: of the format, for a file that isn't of this format or is damaged; as for SourceInput.
  std::shared_ptr<const BlockFile> (*read)(const SourceInput& input);

  /// Requires: `input` is of `file`; all columns of the request are in it.
  /// Lives:    the reader may outlive `file`, but not `cancellation`.
  std::unique_ptr<ChunkReader> (*open)(std::unique_ptr<ArrowInput> input,
                                       std::shared_ptr<const BlockFile> file, BlockRequest request,
                                       const CancellationToken& cancellation);

  /// About how many bytes a reader of some of the columns needs besides the chunks.
  std::int64_t (*readerBytes)(const BlockRun& blocks, std::int64_t columns,
                              std::int64_t allColumns);
};

}  // namespace kv::runtime

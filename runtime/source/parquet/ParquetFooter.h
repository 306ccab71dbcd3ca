#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "kv/runtime/Datastore.h"
#include "source/SourceInput.h"

namespace parquet {
class ArrowReaderProperties;
class FileMetaData;
}  // namespace parquet

namespace kv::runtime {

/// Uncompressed bytes up to which consecutive row groups form one partition.
inline constexpr std::int64_t kParquetPartitionBytes = 64 << 20;

/// How Arrow's types are made of a file's types, and columns read: by one thread, without code of
/// extension types, and with timestamps of 96 bits as microseconds.
parquet::ArrowReaderProperties parquetProperties();

/// Row groups [first, end) of a file, which form a partition.
struct RowGroups {
  std::int32_t first = 0;
  std::int32_t end = 0;
  std::int64_t firstRow = 0;  ///< in the file, counted from 0
  std::int64_t rows = 0;

  bool operator==(const RowGroups&) const = default;
};

/// What a Parquet file says at its end about its columns and row groups. Immutable.
struct ParquetFooter {
  std::string hash;  ///< of its bytes
  std::shared_ptr<parquet::FileMetaData> metadata;
  Schema schema;            ///< names are made distinct, see distinctNames()
  std::vector<int> leaves;  ///< the number of each column among those of `metadata`; -1 if nested

  /// Errors: "KALVEX:datastore:BadParquet" with the fault; as for SourceInput.
  static std::shared_ptr<const ParquetFooter> read(const SourceInput& input);

  /// The partitions of the file, at least one: runs of row groups, each of at most `partitionBytes`
  /// bytes unless it is one row group.
  std::vector<RowGroups> partitions(std::int64_t partitionBytes) const;
};

}  // namespace kv::runtime

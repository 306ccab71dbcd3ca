#pragma once

#include <memory>
#include <string>
#include <vector>

#include "source/BlockFile.h"
#include "source/SourceInput.h"

namespace parquet {
class ArrowReaderProperties;
class FileMetaData;
}  // namespace parquet

namespace kv::runtime {

/// How Arrow's types are made of a file's types, and columns read: by one thread, without code of
/// extension types, and with timestamps of 96 bits as microseconds.
parquet::ArrowReaderProperties parquetProperties();

/// What a Parquet file says at its end about its columns and row groups.
struct ParquetFooter final : BlockFile {
  std::shared_ptr<parquet::FileMetaData> metadata;
  std::vector<int> leaves;  ///< the number of each column among those of `metadata`; -1 if nested

  /// Errors: "KALVEX:datastore:BadParquet" with the fault; as for SourceInput.
  static std::shared_ptr<const ParquetFooter> read(const SourceInput& input);
};

}  // namespace kv::runtime

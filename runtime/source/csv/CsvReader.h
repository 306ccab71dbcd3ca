#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "kv/runtime/Datastore.h"
#include "source/csv/CsvBlocks.h"
#include "source/csv/CsvColumn.h"
#include "source/csv/CsvErrorLocator.h"

namespace kv::runtime {

/// Reads a range of a CSV file as a partition, one chunk per block. Columns that aren't requested
/// are split into fields but not converted.
class CsvReader final : public ChunkReader {
 public:
  /// `range`: that of a CsvIndex, or the whole file.
  /// Errors:   "KALVEX:datastore:SourceChanged" if `file` isn't as recorded or has other columns
  ///           than `schema`, "KALVEX:datastore:UnknownColumn"; as for CsvBlocks.
  /// Lives:    `cancellation` outlives the reader.
  CsvReader(const CsvFile& file, ByteRange range, std::int64_t partition, const Schema& schema,
            const std::vector<std::string>& columns, const CancellationToken& cancellation);
  ~CsvReader() override;

  std::optional<Chunk> next() override;

 private:
  /// A block with a field that can't be converted. The records before that field's are returned
  /// first, so that what is reported doesn't depend on where blocks begin.
  struct Faulty {
    CsvBlock block;
    FaultyField field;
  };

  /// The requested columns of a block; empty if some field can't be converted.
  std::optional<Chunk> converted(const CsvBlock& block) const;

  CsvBlocks blocks_;
  std::int64_t rangeBegin_;
  std::int64_t partition_;
  std::shared_ptr<const std::vector<std::string>> names_;
  Schema infos_;  ///< of the requested columns
  std::vector<CsvColumn> columns_;
  const CancellationToken& cancellation_;
  std::optional<Faulty> faulty_;
};

}  // namespace kv::runtime

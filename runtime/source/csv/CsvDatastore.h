#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "kv/runtime/csv.h"
#include "source/FileDatastore.h"
#include "source/csv/CsvFile.h"
#include "source/csv/CsvIndex.h"

namespace kv::runtime {

/// The first text of a description of CSV files.
inline constexpr std::string_view kCsvFormat = "csv";

/// CSV files that form one table, one partition per range of a file; see openCsv() for format,
/// types and errors.
class CsvDatastore final : public FileDatastore {
 public:
  /// `rangeBytes`: for tests, to cut small files.
  explicit CsvDatastore(const std::vector<std::string>& paths,
                        const std::vector<TypeOverride>& types = {}, const CsvFormat& format = {},
                        std::int64_t rangeBytes = csvRangeBytes());

  /// The table with this description; opens nothing. Each file is compared with its description
  /// when it is read.
  explicit CsvDatastore(CsvTable table, std::int64_t rangeBytes = csvRangeBytes());

  const FileTable& table() const override;
  const CsvTable& csv() const;
  std::string formatNote() const override { return kv::runtime::formatNote(csv().format); }
  std::int64_t numPartitions() const override;
  std::unique_ptr<ChunkReader> openPartition(std::int64_t partition,
                                             const std::vector<std::string>& columns,
                                             const CancellationToken& cancellation) const override;
  /// Some of the first rows, read when the files were opened; none for an opened description.
  const Chunk& firstRows() const;

  std::size_t fileNumber(std::int64_t partition) const override;
  std::int64_t estimateBytes(std::int64_t partition,
                             const std::vector<std::string>& columns) const override;
  std::shared_ptr<const Datastore> cutFiner(std::int64_t count) const override;
  std::unique_ptr<Datastore> copy() const override;
  const std::string& fingerprint() const override;
  std::string describe() const override;
  std::shared_ptr<const FileDatastore> openOthers(
      const std::vector<std::string>& paths) const override;
  std::shared_ptr<const FileDatastore> withFiles(std::string name, const FileDatastore& others,
                                                 std::span<const FileOf> files) const override;

 private:
  struct State;

  /// Copies share it.
  std::shared_ptr<State> state_;
};

/// Reads what follows the name of the format in a description.
/// Errors: "KALVEX:executor:BadBytes".
std::shared_ptr<const Datastore> openDescribedCsv(ByteReader& description);

}  // namespace kv::runtime

#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "sink/KeyFolders.h"
#include "sink/RowWriter.h"
#include "sink/WriteTarget.h"

namespace kv::runtime {

/// A file in the folder of a target, or of pieces.
struct WrittenFile {
  std::string name{};  ///< with the folders of keys
  std::int64_t rows = 0;
  std::int64_t bytes = 0;
};

/// What a unit wrote.
struct WrittenPart {
  std::vector<WrittenFile> files{};  ///< none for a partition without rows
  std::int64_t rows = 0;
  SinkSchema schema{};  ///< of each file

  std::string toBytes() const;
  /// Errors: "KALVEX:executor:BadBytes".
  static WrittenPart fromBytes(std::string_view content);
};

/// The most folders that the rows of a partition may be in.
inline constexpr std::size_t kMostFolders = 256;

/// Writes the rows of a partition to a file in the staging folder of the target, which exists, or
/// to one in each folder of its keys. If it is run again, it replaces what it wrote.
class PartWriter {
 public:
  /// Lives: the target outlives this object.
  PartWriter(const WriteTarget& target, std::int64_t partition, std::int64_t numPartitions);

  /// Errors: those of the format; of OutputFile; "KALVEX:sink:TooManyFolders".
  void write(const Chunk& rows);

  /// Called once, after the last rows; what is in a folder is synced.
  WrittenPart finish();

 private:
  struct File {
    OutputPtr output{};
    std::unique_ptr<RowWriter> writer{};
    std::int64_t rows = 0;
  };

  void writeTo(const std::string& folder, const Chunk& rows);
  File open(const std::string& folder) const;

  const WriteTarget& target_;
  const KeyFolders keys_;
  const std::int64_t partition_;
  std::string name_;
  WrittenPart part_;
  std::map<std::string, File> files_;  ///< by their folder, which is empty without keys
};

/// Makes the target of the parts of all partitions.
class PartsMerge {
 public:
  /// Errors: those of checkTarget() and StagingFolder.
  explicit PartsMerge(WriteTarget target);
  ~PartsMerge();
  PartsMerge(const PartsMerge&) = delete;
  PartsMerge& operator=(const PartsMerge&) = delete;

  /// Called for each partition, in order.
  void add(const WrittenPart& part);

  /// The target appears; called once.
  /// Result: the number of rows.
  std::int64_t finish();

 private:
  class State;
  std::unique_ptr<State> state_;
};

}  // namespace kv::runtime

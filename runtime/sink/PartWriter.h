#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "sink/RowWriter.h"
#include "sink/WriteTarget.h"

namespace kv::runtime {

/// What a unit wrote.
struct WrittenPart {
  std::string name{};  ///< of the file; none for a partition without rows
  std::int64_t rows = 0;
  std::int64_t bytes = 0;
  SinkSchema schema{};

  std::string toBytes() const;
  /// Errors: "KALVEX:executor:BadBytes".
  static WrittenPart fromBytes(std::string_view content);
};

/// Writes the rows of a partition to a file in the staging folder of the target, which exists. If
/// it is run again, it replaces what it wrote.
class PartWriter {
 public:
  /// Lives: the target outlives this object.
  PartWriter(const WriteTarget& target, std::int64_t partition, std::int64_t numPartitions);

  /// Errors: those of the format; of OutputFile.
  void write(const Chunk& rows);

  /// Called once, after the last rows; what is in a folder is synced.
  WrittenPart finish();

 private:
  const WriteTarget& target_;
  WrittenPart part_;
  std::string name_;
  OutputPtr file_;
  std::unique_ptr<RowWriter> writer_;
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

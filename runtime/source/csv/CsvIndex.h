#pragma once

#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <optional>
#include <vector>

#include "kv/runtime/Cancellation.h"
#include "source/csv/CsvBlocks.h"
#include "source/csv/CsvFile.h"
#include "source/csv/CsvTransition.h"

namespace kv::runtime {

/// Bytes of a CSV file from which the records of one partition are taken.
inline constexpr std::int64_t kCsvRangeBytes = 32 << 20;

/// kCsvRangeBytes; in a world of tests, the number in KV_CSV_RANGE.
std::int64_t csvRangeBytes();

/// Cuts a CSV file into ranges of `rangeBytes` bytes, and moves each cut to the next record.
///
/// A record belongs to the range in which it begins, so a range may have no records. Whether a byte
/// ends a record depends on all quotes before it. So the bytes of each range are examined once, for
/// every state in which the range may begin; the state at a cut follows from the ranges before it.
/// Nothing is guessed.
///
/// Threads: any; several examine different ranges at the same time.
class CsvIndex {
 public:
  CsvIndex(CsvFile file, std::int64_t rangeBytes);

  /// At least 1; depends on the size of the file alone. A compressed file is one range.
  std::int64_t numRanges() const { return numRanges_; }

  /// The bytes of the records of range `index`; the header is in the first.
  ///
  /// Errors: as for SourceInput, CsvBlocks::readHeader; Cancelled.
  /// Cost:   reads the ranges up to this one that weren't examined yet, but not the last.
  ByteRange records(std::int64_t index, const CancellationToken& cancellation);

 private:
  struct Range {
    std::optional<CsvTransition> transition;
    bool isBusy = false;  ///< a thread examines it
  };

  std::int64_t cut(std::int64_t index) const;
  std::int64_t headerEnd();
  std::optional<std::int64_t> recordAtCut(std::int64_t index,
                                          const CancellationToken& cancellation);
  void examine(std::int64_t end, const CancellationToken& cancellation);
  CsvTransition transitionOf(std::int64_t index, const CancellationToken& cancellation);
  std::optional<std::int64_t> firstRecordFrom(std::int64_t offset, CsvState state) const;

  std::int64_t fileBytes() const { return file_.file.bytes; }

  const CsvFile file_;
  const std::int64_t rangeBytes_;
  const std::int64_t numRanges_;
  std::mutex mutex_;  ///< of what follows
  std::condition_variable examined_;
  std::vector<Range> ranges_;    ///< none until one is examined
  std::int64_t headerEnd_ = -1;  ///< not known yet
};

}  // namespace kv::runtime

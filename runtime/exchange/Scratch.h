#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "kv/runtime/Cancellation.h"
#include "kv/runtime/Column.h"

namespace kv::runtime {

class Scratch;

/// Rows that don't fit in memory, as batches of columns: Arrow's IPC stream format with LZ4, in a
/// file that has no name, so that nothing is left of it, however the process ends.
///
/// Threads: one at a time.
class ScratchFile {
 public:
  ~ScratchFile();
  ScratchFile(const ScratchFile&) = delete;
  ScratchFile& operator=(const ScratchFile&) = delete;

  /// Requires: columns of the same types each time; nothing was read yet.
  /// Errors: "KALVEX:spill:NoSpace" with the folder and the bytes that are in it;
  ///         "KALVEX:spill:Failed" with the folder and the reason.
  void append(const std::vector<Column>& columns);

  std::size_t numBatches() const { return numBatches_; }

  /// The next batch, from the first; none after the last.
  /// Errors: "KALVEX:spill:Failed"; Cancelled.
  std::optional<std::vector<Column>> next();

 private:
  friend class Scratch;
  class Sink;
  class Batches;

  ScratchFile(Scratch& scratch, int file);

  void check(const arrow::Status& status) const;

  Scratch& scratch_;
  int file_;
  std::size_t numBatches_ = 0;
  std::vector<ElementType> types_;
  std::shared_ptr<Sink> sink_;
  std::unique_ptr<Batches> batches_;
};

/// The scratch files of one evaluation.
///
/// Lives: longer than its files. Threads: any.
class Scratch {
 public:
  /// `limitBytes`: of all files at a time. `spillsAlways`: for tests, even what would fit in memory
  /// is spilled.
  Scratch(std::string folder, std::int64_t limitBytes, bool spillsAlways,
          const CancellationToken& cancellation)
      : folder_(std::move(folder)),
        limitBytes_(limitBytes),
        spillsAlways_(spillsAlways),
        cancellation_(cancellation) {}

  /// Errors: "KALVEX:spill:Failed" with the folder and the reason.
  std::unique_ptr<ScratchFile> open();

  const std::string& folder() const { return folder_; }
  bool spillsAlways() const { return spillsAlways_; }

  /// Bytes that were written in all, and how often rows were spilled that had been spilled before,
  /// at most: 1 if none were.
  std::int64_t spilledBytes() const { return spilled_; }
  int levels() const { return levels_; }
  void noteLevel(int level);

 private:
  friend class ScratchFile;

  bool charge(std::int64_t bytes);

  std::string folder_;
  std::int64_t limitBytes_;
  bool spillsAlways_;
  const CancellationToken& cancellation_;
  std::atomic<std::int64_t> used_{0};
  std::atomic<std::int64_t> spilled_{0};
  std::atomic<int> levels_{0};
};

/// The scratch of the context for which this thread works; null if there is none.
Scratch* currentScratch() noexcept;

}  // namespace kv::runtime

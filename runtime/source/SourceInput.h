#pragma once

#include <sys/stat.h>

#include <cstddef>
#include <cstdint>

#include "source/SourceFile.h"

namespace kv::runtime {

/// Reads a file from its first byte to its last, and notices if it is written meanwhile.
///
/// All that `read` gives was in the file while size and time, the inode and the time of its last
/// change were what they were when it was opened. At the end of the file its path must still lead
/// to it, so that a file that was replaced is noticed, too. A change of its rights or its links
/// also counts: it can't be told from a write that restored size and time.
///
/// Threads: belongs to one thread at a time.
class SourceInput {
 public:
  /// Errors: "KALVEX:datastore:SourceChanged" when the file isn't as it was noted,
  ///         "KALVEX:datastore:SourceGone" when a save noted it and it is gone,
  ///         "KALVEX:datastore:FileNotReadable".
  explicit SourceInput(SourceFile file);
  ~SourceInput();
  SourceInput(const SourceInput&) = delete;
  SourceInput& operator=(const SourceInput&) = delete;

  const SourceFile& file() const { return file_; }

  /// Reads the next `bytes` bytes to `to`.
  ///
  /// Result: how many there were; fewer than `bytes` only at the end of the file.
  /// Errors: "KALVEX:datastore:SourceChanged" when the file was written or replaced since
  ///         it was opened, "KALVEX:datastore:FileNotReadable".
  std::size_t read(char* to, std::size_t bytes);

 private:
  void throwIfWritten() const;
  void throwIfReplaced() const;
  [[noreturn]] void throwChangedMeanwhile() const;

  SourceFile file_;
  int descriptor_ = -1;
  struct stat opened_ {};
  std::int64_t position_ = 0;
};

}  // namespace kv::runtime

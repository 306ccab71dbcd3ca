#pragma once

#include <sys/stat.h>

#include <cstddef>
#include <cstdint>

#include "source/SourceFile.h"

namespace kv::runtime {

/// Reads a file, and detects if it is written meanwhile.
///
/// All bytes that are read were in the file while size, time, inode and status change time were as
/// when it was opened. At the end, the path must still lead to the same file, so that a replaced
/// file is detected, too. A change of its permissions or links also counts: it can't be
/// distinguished from a write that restored size and time.
///
/// Threads: one at a time.
class SourceInput {
 public:
  /// Errors: "KALVEX:datastore:SourceChanged" if the file isn't as recorded,
  ///         "KALVEX:datastore:SourceGone" if a save recorded it and it is gone,
  ///         "KALVEX:datastore:FileNotReadable".
  explicit SourceInput(SourceFile file);
  ~SourceInput();
  SourceInput(const SourceInput&) = delete;
  SourceInput& operator=(const SourceInput&) = delete;

  const SourceFile& file() const { return file_; }

  /// Reads `bytes` bytes from byte `offset` on.
  ///
  /// Requires: 0 <= offset and offset + bytes <= file().bytes.
  /// Errors:   "KALVEX:datastore:SourceChanged" if the file was written or cut since it was
  ///           opened, "KALVEX:datastore:FileNotReadable" when no retry is left, see ReadRetries.
  void readAt(std::int64_t offset, char* to, std::size_t bytes) const;

  /// To be called when all has been read.
  ///
  /// Errors: "KALVEX:datastore:SourceChanged" unless the path still leads to the file.
  void throwIfReplaced() const;

 private:
  void throwIfWritten() const;
  [[noreturn]] void throwChangedMeanwhile() const;

  SourceFile file_;
  int descriptor_ = -1;
  struct stat opened_ {};
};

}  // namespace kv::runtime

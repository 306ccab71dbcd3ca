#pragma once

#include <chrono>
#include <cstdint>
#include <string>

struct stat;

namespace kv::runtime {

/// A file in its state when its source was opened, or when a description of the source was saved.
struct SourceFile {
  using Clock = std::chrono::nanoseconds (*)();

  std::string path;          ///< as the user gave it
  std::string absolutePath;  ///< denotes the same file when the working directory changes
  std::int64_t bytes = 0;
  std::int64_t modified = 0;  ///< ticks of std::chrono::file_clock
  bool isFromSave = false;    ///< recorded when the source was saved, not by this process

  /// Records size and time of the file at `path`, once any later write is sure to have another
  /// time.
  ///
  /// @param now   the time since the epoch that the file system would give to a write now
  ///
  /// Errors: "KALVEX:datastore:FileNotFound"; "KALVEX:datastore:FileNotReadable", also if the file
  ///         was being written at each of a hundred attempts.
  /// Cost:   waits for the next tick of the file system's clock (up to 10 ms, or 50 ms if that
  ///         clock is ahead of this machine's) if the file was written in the current one; 100 ms
  ///         or more before it fails for a file that is being written.
  static SourceFile stat(const std::string& path, Clock now = timeOfWrites);

  /// The time since the epoch by the clock that local file systems read.
  static std::chrono::nanoseconds timeOfWrites();

  /// True if `status` has the recorded size and time.
  bool isAsNoted(const struct stat& status) const;

  /// Errors: always "KALVEX:datastore:SourceChanged".
  [[noreturn]] void throwChanged() const;
};

}  // namespace kv::runtime

#pragma once

#include <cstdint>
#include <string>

namespace kv::runtime {

/// A file as it was when its source was opened, or when a description of the source was saved.
struct SourceFile {
  std::string path;          ///< as the user gave it
  std::string absolutePath;  ///< stays the same file when the working directory changes
  std::int64_t bytes = 0;
  std::int64_t modified = 0;  ///< ticks of the file system's clock
  bool isFromSave = false;    ///< noted by whoever saved the source, not by this process

  /// Notes size and time of the file at `path`.
  ///
  /// Errors: DataError "KALVEX:datastore:FileNotFound", "KALVEX:datastore:FileNotReadable".
  static SourceFile look(const std::string& path);

  /// Errors: DataError "KALVEX:datastore:SourceChanged" when the file is gone or differs in size or
  ///         time from what was noted; "KALVEX:datastore:SourceGone" when it was noted by a save
  ///         and is gone.
  void throwIfChanged() const;

  /// Errors: always DataError "KALVEX:datastore:SourceChanged".
  [[noreturn]] void throwChanged() const;

  /// Path, size and time in one line.
  std::string fingerprint() const;
};

}  // namespace kv::runtime

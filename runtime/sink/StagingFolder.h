#pragma once

#include <string>
#include <vector>

#include "sink/WriteTarget.h"

namespace kv::runtime {

/// A hidden folder beside a target, in which its content is made: `.kv-<token>`.
///
/// 1. Only its owner may enter it, and it is locked (flock) while it exists. One that isn't locked
///    was left by a process that was killed; the next run of a sink beside it removes it.
/// 2. Its only entry is the content, a file or a folder. That takes the target's name in one step;
///    the content that it replaces is removed.
///
/// Threads: one at a time; the content may be written by any thread meanwhile.
class StagingFolder {
 public:
  /// Removes what killed runs left, and makes the folder.
  /// Errors: "KALVEX:sink:CannotWrite"; "KALVEX:sink:NoSpace".
  explicit StagingFolder(const WriteTarget& target);

  /// Removes the folder with all that is in it.
  ~StagingFolder();
  StagingFolder(const StagingFolder&) = delete;
  StagingFolder& operator=(const StagingFolder&) = delete;

  /// Gives the content the target's name. All its files are synced; `folders` are those in it, the
  /// deepest first.
  /// Errors: those of checkTarget(), if something took the name in the meantime;
  ///         "KALVEX:sink:CannotWrite". The target is as it was then; only if the folder above it
  ///         can't be synced, at the very end, is it already the new one.
  void commit(const std::vector<std::string>& folders);

 private:
  const WriteTarget& target_;
  std::string path_;
  int folder_ = -1;  ///< holds the lock
};

/// The path of the content of a target's staging folder: a file or a folder, as the target.
std::string stagedPath(const WriteTarget& target);

/// A folder for the pieces of a file, beside it in the staging folder.
std::string piecesPath(const WriteTarget& target);

/// Makes a folder unless there is one.
/// Errors: "KALVEX:sink:CannotWrite" with the target's path.
void makeFolder(const std::string& path, const WriteTarget& target);

}  // namespace kv::runtime

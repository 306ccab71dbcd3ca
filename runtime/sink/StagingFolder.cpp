// Everything happens beside the target, so that the last step is a rename within a folder. A lock
// on the staging folder distinguishes one that is in use from one that a killed process left. The
// content has its own name in there: so it gets the permissions of any new file or folder, and what
// it replaces moves to a place from which it is removed, even by a later run.

#include "sink/StagingFolder.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>  // renameat2
#include <filesystem>
#include <memory>
#include <new>
#include <string_view>
#include <vector>

#include "sink/OutputFile.h"
#include "sink/retried.h"

namespace kv::runtime {

namespace {

namespace fs = std::filesystem;

constexpr std::string_view kPrefix = ".kv-";
constexpr mode_t kPrivate = 0700;
constexpr mode_t kNewFolderMode = 0777;
constexpr int kFolderFlags = O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;

int openFolder(const std::string& path) {
  return retried([&] { return ::open(path.c_str(), kFolderFlags); });
}

bool isLocked(int folder) {
  return retried([&] { return ::flock(folder, LOCK_EX | LOCK_NB); }) == -1 && errno == EWOULDBLOCK;
}

std::string folderOf(const WriteTarget& target) {
  return fs::path(target.path).parent_path().string();
}

std::string stagingPath(const WriteTarget& target) {
  return folderOf(target) + '/' + std::string(kPrefix) + target.token;
}

struct CloseFolder {
  void operator()(DIR* folder) const noexcept { ::closedir(folder); }
};
using FolderEntries = std::unique_ptr<DIR, CloseFolder>;

/// Calls `visit` with the name of each entry. What can't be read has none.
template <class Visit>
void forEachEntry(const std::string& path, const Visit& visit) {
  const int folder = openFolder(path);
  const FolderEntries entries(folder >= 0 ? ::fdopendir(folder) : nullptr);
  if (entries == nullptr && folder >= 0) {
    ::close(folder);
  }
  while (const dirent* entry = entries != nullptr ? ::readdir(entries.get()) : nullptr) {
    const std::string_view name = entry->d_name;
    if (name != "." && name != "..") {
      visit(path + '/' + entry->d_name);
    }
  }
}

/// Removes a folder with all that is in it, or a file; links aren't followed. What can't be removed
/// is left to a later run.
void removeAll(const std::string& path) noexcept {
  try {
    std::vector<std::string> folders{path};
    for (std::size_t next = 0; next < folders.size(); ++next) {
      const std::string folder = folders[next];
      forEachEntry(folder, [&](std::string entry) {
        if (::unlink(entry.c_str()) != 0 && (errno == EISDIR || errno == EPERM)) {
          folders.push_back(std::move(entry));
        }
      });
    }
    for (; !folders.empty(); folders.pop_back()) {
      ::rmdir(folders.back().c_str());
    }
  } catch (const std::bad_alloc&) {
    ::rmdir(path.c_str());
  }
}

bool isStagingName(std::string_view name) {
  return name.starts_with(kPrefix) && name.size() == kPrefix.size() + kTokenDigits &&
         name.find_first_not_of("0123456789abcdef", kPrefix.size()) == std::string_view::npos;
}

void removeLeftovers(const std::string& folder) {
  forEachEntry(folder, [&](const std::string& entry) {
    if (!isStagingName(std::string_view(entry).substr(folder.size() + 1))) {
      return;
    }
    const int left = openFolder(entry);
    if (left >= 0 && !isLocked(left)) {
      removeAll(entry);
    }
    if (left >= 0) {
      ::close(left);
    }
  });
}

/// Some file systems sync their folders on their own and refuse the call.
void syncFolder(const std::string& path, const WriteTarget& target) {
  const int folder = openFolder(path);
  const int outcome = folder >= 0 ? retried([&] { return ::fsync(folder); }) : -1;
  const int error = errno;
  if (folder >= 0) {
    ::close(folder);
  }
  if (outcome != 0 && error != EINVAL && error != EOPNOTSUPP) {
    raiseCannotWrite(target.path, error, 0);
  }
}

}  // namespace

std::string stagedPath(const WriteTarget& target) { return stagingPath(target) + "/content"; }

std::string piecesPath(const WriteTarget& target) { return stagingPath(target) + "/pieces"; }

void makeFolder(const std::string& path, const WriteTarget& target) {
  if (::mkdir(path.c_str(), kNewFolderMode) != 0 && errno != EEXIST) {
    raiseCannotWrite(target.path, errno, 0);
  }
}

/// Between making the folder and locking it, another run may take it for a leftover: then the
/// folder inside can't be made, and it starts again.
StagingFolder::StagingFolder(const WriteTarget& target)
    : target_(target), path_(stagingPath(target)) {
  removeLeftovers(folderOf(target));
  const std::string inside = target.isFolder ? stagedPath(target) : piecesPath(target);
  for (;;) {
    if (::mkdir(path_.c_str(), kPrivate) != 0) {
      raiseCannotWrite(target.path, errno, 0);
    }
    folder_ = openFolder(path_);
    const bool isTaken = folder_ < 0 ? errno == ENOENT : isLocked(folder_);
    if (folder_ >= 0 && !isTaken && ::mkdir(inside.c_str(), kNewFolderMode) == 0) {
      return;
    }
    const int error = isTaken ? ENOENT : errno;
    if (folder_ >= 0) {
      ::close(folder_);
    }
    ::rmdir(path_.c_str());
    if (error != ENOENT) {
      raiseCannotWrite(target.path, error, 0);
    }
  }
}

StagingFolder::~StagingFolder() {
  removeAll(path_);
  ::close(folder_);
}

void StagingFolder::commit(const std::vector<std::string>& folders) {
  const std::string content = stagedPath(target_);
  for (const std::string& folder : folders) {
    syncFolder(content + '/' + folder, target_);
  }
  if (target_.isFolder) {
    syncFolder(content, target_);
  }
  checkTarget(target_, {});
  const auto renamed = [&](unsigned flags) {
    return ::renameat2(AT_FDCWD, content.c_str(), AT_FDCWD, target_.path.c_str(), flags) == 0;
  };
  bool isDone = false;
  if (target_.overwrites) {
    isDone = renamed(RENAME_EXCHANGE) || (errno == ENOENT && renamed(RENAME_NOREPLACE));
  } else {
    isDone = renamed(RENAME_NOREPLACE);
  }
  // A file system without these flags: a file replaces another one in one step, too.
  if (!isDone && errno == EINVAL && !(target_.isFolder && target_.overwrites)) {
    isDone = renamed(0);
  }
  if (!isDone) {
    const int error = errno;
    checkTarget(target_, {});
    raiseCannotWrite(target_.path, error, 0);
  }
  syncFolder(folderOf(target_), target_);
}

}  // namespace kv::runtime

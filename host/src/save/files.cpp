// Replacing a file so that a crash or a power failure at any point leaves the old file or the new
// one: write beside it, sync, rename, sync the folder. The file beside it is locked while it is
// written, which is how a later save distinguishes a leftover of a killed process from a file that
// another process is still writing. Every system call may be interrupted or fail, and is checked.

#include "save/files.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <random>
#include <system_error>
#include <utility>

#include "kv/host/errors.h"

namespace kv::host {

namespace {

namespace fs = std::filesystem;

constexpr std::string_view kLeftoverEnding = ".kvtmp";
constexpr std::size_t kDigits = 16;
constexpr std::size_t kLongestName = 255;
constexpr int kMostLinks = 40;  // in a row, the kernel's limit
constexpr mode_t kNewFileMode = 0666;
constexpr mode_t kPermissions = 0777;

/// Why a file can't be read or written.
struct FileError {
  std::string reason;
};

[[noreturn]] void fail(int error) { throw FileError{std::generic_category().message(error)}; }

/// Makes a system call until no signal interrupts it.
template <class Call>
auto retried(Call call) {
  auto result = call();
  while (result == -1 && errno == EINTR) {
    result = call();
  }
  return result;
}

/// The same; any other error is raised.
template <class Call>
auto checked(Call call) {
  const auto result = retried(call);
  if (result == -1) {
    fail(errno);
  }
  return result;
}

class Descriptor {
 public:
  explicit Descriptor(int number) noexcept : number_(number) {}
  Descriptor(Descriptor&& other) noexcept : number_(std::exchange(other.number_, -1)) {}
  Descriptor& operator=(Descriptor&&) = delete;
  ~Descriptor() {
    if (isOpen()) {
      ::close(number_);
    }
  }

  bool isOpen() const noexcept { return number_ != -1; }
  int get() const noexcept { return number_; }

 private:
  int number_;
};

/// Without O_NONBLOCK, opening a pipe would wait before it could be refused.
constexpr int kReadFlags = O_RDONLY | O_CLOEXEC | O_NONBLOCK;

Descriptor openOrFail(const fs::path& path, int flags) {
  return Descriptor(checked([&] { return ::open(path.c_str(), flags); }));
}

struct stat statusOf(const Descriptor& file) {
  struct stat status {};
  checked([&] { return ::fstat(file.get(), &status); });
  return status;
}

/// True when this process holds the lock of the file from here until it closes it.
bool tryLock(const Descriptor& file) {
  return retried([&] { return ::flock(file.get(), LOCK_EX | LOCK_NB); }) == 0;
}

void sync(const Descriptor& file) {
  checked([&] { return ::fsync(file.get()); });
}

/// Some file systems sync their folders on their own and refuse the call.
void syncFolder(const Descriptor& folder) {
  if (retried([&] { return ::fsync(folder.get()); }) == -1 && errno != EINVAL &&
      errno != EOPNOTSUPP) {
    fail(errno);
  }
}

void writeAll(const Descriptor& file, std::string_view bytes) {
  while (!bytes.empty()) {
    const ssize_t written =
        checked([&] { return ::write(file.get(), bytes.data(), bytes.size()); });
    if (written == 0) {
      fail(EIO);
    }
    bytes.remove_prefix(static_cast<std::size_t>(written));
  }
}

/// Refuses paths that the system's calls would silently truncate.
fs::path checkedPath(const std::string& path) {
  if (path.find('\0') != std::string::npos) {
    fail(EINVAL);
  }
  return path;
}

/// The file that a path names once its symbolic links are followed; it needn't exist.
fs::path followLinks(fs::path path) {
  for (int hops = 0; hops < kMostLinks; ++hops) {
    std::error_code error;
    const fs::path aim = fs::read_symlink(path, error);
    if (error == std::errc::invalid_argument || error == std::errc::no_such_file_or_directory) {
      return path;
    }
    if (error && error != std::errc::interrupted) {
      fail(error.value());
    }
    path = error ? path : path.parent_path() / aim;
  }
  fail(ELOOP);
}

fs::path folderOf(const fs::path& file) {
  return file.has_parent_path() ? file.parent_path() : fs::path(".");
}

/// What the names of the files that a save of `target` writes to begin with.
std::string stemOf(const fs::path& target) {
  return target.filename().native().substr(0, kLongestName - 1 - kDigits - kLeftoverEnding.size()) +
         ".";
}

bool isLeftoverName(std::string_view name, std::string_view stem) {
  if (name.size() != stem.size() + kDigits + kLeftoverEnding.size() || !name.starts_with(stem) ||
      !name.ends_with(kLeftoverEnding)) {
    return false;
  }
  const std::string_view digits = name.substr(stem.size(), kDigits);
  return digits.find_first_not_of("0123456789abcdef") == std::string_view::npos;
}

std::string randomDigits() {
  std::random_device device;
  std::string digits(kDigits, '0');
  std::ranges::generate(digits, [&] { return "0123456789abcdef"[device() % 16]; });
  return digits;
}

void removeUnlessLocked(const fs::path& leftover) {
  const Descriptor file(retried([&] { return ::open(leftover.c_str(), kReadFlags | O_NOFOLLOW); }));
  if (file.isOpen() && tryLock(file)) {
    ::unlink(leftover.c_str());
  }
}

struct CloseFolder {
  void operator()(DIR* folder) const noexcept { ::closedir(folder); }
};

/// Removes what killed saves left over. What can't be removed doesn't stop this save.
/// The iterator of std::filesystem isn't used: it ends the process where memory is short.
void removeLeftovers(const fs::path& target) {
  const std::string stem = stemOf(target);
  const std::unique_ptr<DIR, CloseFolder> folder(::opendir(folderOf(target).c_str()));
  while (const dirent* entry = folder != nullptr ? ::readdir(folder.get()) : nullptr) {
    if (isLeftoverName(entry->d_name, stem)) {
      removeUnlessLocked(folderOf(target) / entry->d_name);
    }
  }
}

/// The permissions of the file to be replaced, or those of a new one.
struct Permissions {
  mode_t bits = kNewFileMode;
  bool areKept = false;
};

Permissions permissionsFor(const fs::path& target) {
  struct stat status {};
  if (retried([&] { return ::stat(target.c_str(), &status); }) == -1) {
    if (errno != ENOENT) {
      fail(errno);
    }
    return {};
  }
  if (!S_ISREG(status.st_mode)) {
    throw FileError{"it isn't a regular file"};
  }
  checked([&] { return ::faccessat(AT_FDCWD, target.c_str(), W_OK, AT_EACCESS); });
  return {status.st_mode & kPermissions, true};
}

/// The new file beside the target. Removed again unless it takes the target's place.
class TemporaryFile {
 public:
  TemporaryFile(fs::path path, mode_t mode)
      : path_(std::move(path)), file_(checked([&] {
          return ::open(path_.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, mode);
        })) {}
  TemporaryFile(const TemporaryFile&) = delete;
  TemporaryFile& operator=(const TemporaryFile&) = delete;
  ~TemporaryFile() {
    if (!path_.empty()) {
      ::unlink(path_.c_str());
    }
  }

  const Descriptor& file() const noexcept { return file_; }

  void takePlaceOf(const fs::path& target) {
    checked([&] { return ::rename(path_.c_str(), target.c_str()); });
    path_.clear();
  }

 private:
  fs::path path_;
  Descriptor file_;
};

/// Locks the new file. False: another save took it for a leftover in the moment before.
///
/// On a file system without locks no save removes leftovers, so going on does no harm there.
bool isOurs(const Descriptor& file) {
  return (tryLock(file) || errno != EWOULDBLOCK) && statusOf(file).st_nlink > 0;
}

void writeBeside(const fs::path& target, std::span<const std::string_view> pieces) {
  const Permissions permissions = permissionsFor(target);
  const Descriptor folder = openOrFail(folderOf(target), kReadFlags | O_DIRECTORY);
  for (;;) {
    TemporaryFile temporary(
        folderOf(target) / (stemOf(target) + randomDigits() + std::string(kLeftoverEnding)),
        permissions.bits);
    if (!isOurs(temporary.file())) {
      continue;
    }
    if (permissions.areKept) {  // the umask may have removed some
      checked([&] { return ::fchmod(temporary.file().get(), permissions.bits); });
    }
    for (const std::string_view piece : pieces) {
      writeAll(temporary.file(), piece);
    }
    sync(temporary.file());
    temporary.takePlaceOf(target);
    return syncFolder(folder);
  }
}

/// Appends the next bytes of a file until there are `size`.
void readUpTo(const Descriptor& file, std::string& bytes, std::size_t size, std::size_t fileBytes) {
  std::size_t done = bytes.size();
  bytes.resize(size);
  while (done < size) {
    const ssize_t read =
        checked([&] { return ::read(file.get(), bytes.data() + done, size - done); });
    if (read == 0) {
      throw FileError{"it shrank while it was read, from " + std::to_string(fileBytes) + " to " +
                      std::to_string(done) + " bytes"};
    }
    done += static_cast<std::size_t>(read);
  }
}

std::string readAll(const Descriptor& file, std::size_t headBytes,
                    void (*checkHead)(std::string_view, std::uint64_t)) {
  const struct stat status = statusOf(file);
  if (!S_ISREG(status.st_mode)) {
    throw FileError{"it isn't a regular file"};
  }
  const auto fileBytes = static_cast<std::size_t>(status.st_size);
  std::string bytes;
  readUpTo(file, bytes, std::min(headBytes, fileBytes), fileBytes);
  checkHead(bytes, fileBytes);
  readUpTo(file, bytes, fileBytes, fileBytes);
  return bytes;
}

}  // namespace

void writeFileAtomically(const std::string& path, std::span<const std::string_view> pieces) {
  try {
    const fs::path target = followLinks(checkedPath(path));
    removeLeftovers(target);
    writeBeside(target, pieces);
  } catch (const FileError& error) {
    raise("KALVEX:save:CannotWrite", {path, error.reason});
  }
}

std::string readFile(const std::string& path, std::size_t headBytes,
                     void (*checkHead)(std::string_view head, std::uint64_t fileBytes)) {
  try {
    return readAll(openOrFail(checkedPath(path), kReadFlags), headBytes, checkHead);
  } catch (const FileError& error) {
    raise("KALVEX:load:CannotRead", {path, error.reason});
  }
}

}  // namespace kv::host

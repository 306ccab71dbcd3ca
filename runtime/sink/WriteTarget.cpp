// A path is turned into a target once, where the user writes it. Whether the target may be written
// is checked twice: before anything is read, and again right before the content takes its name.

#include "sink/WriteTarget.h"

#include <dirent.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <optional>
#include <random>
#include <utility>

#include "kv/errors/StepError.h"
#include "kv/errors/shownText.h"
#include "sink/RowWriter.h"

namespace kv::runtime {

namespace {

namespace fs = std::filesystem;

std::string newToken() {
  std::random_device device;
  std::string token(kTokenDigits, '0');
  for (char& digit : token) {
    digit = "0123456789abcdef"[device() % 16];
  }
  return token;
}

const SinkFormat& requireFormat(std::string_view name) {
  const SinkFormat* format = findSinkFormat(name);
  if (format == nullptr) {
    errors::raiseStep("KALVEX:sink:UnknownFormat", {std::string(name), sinkFormatNames()});
  }
  return *format;
}

/// Identifies a file or folder, whatever path leads to it.
struct FileIdentity {
  dev_t device;
  ino_t inode;

  bool operator==(const FileIdentity&) const = default;

  static std::optional<FileIdentity> of(const std::string& path) {
    struct stat status {};
    if (::stat(path.c_str(), &status) != 0) {
      return std::nullopt;
    }
    return FileIdentity{status.st_dev, status.st_ino};
  }
};

/// True if the target is the file, or a folder above it.
bool isAbove(const FileIdentity& target, const std::string& file) {
  const std::unique_ptr<char, void (*)(void*)> resolved(::realpath(file.c_str(), nullptr),
                                                        std::free);
  for (fs::path path = resolved != nullptr ? resolved.get() : file.c_str(); !path.empty();
       path = path.parent_path()) {
    if (FileIdentity::of(path.string()) == target) {
      return true;
    }
    if (path == path.parent_path()) {
      break;
    }
  }
  return false;
}

/// True for a folder that is empty or has a manifest: one that may be replaced.
bool isOurs(const std::string& folder) {
  struct stat status {};
  if (::lstat((folder + '/' + std::string(kManifestName)).c_str(), &status) == 0) {
    return true;
  }
  if (errno != ENOENT) {
    raiseCannotWrite(folder, errno, 0);
  }
  const std::unique_ptr<DIR, int (*)(DIR*)> entries(::opendir(folder.c_str()), ::closedir);
  std::size_t count = 0;
  errno = entries != nullptr ? 0 : errno;
  while (entries != nullptr && ::readdir(entries.get()) != nullptr) {
    ++count;
  }
  if (errno != 0) {
    raiseCannotWrite(folder, errno, 0);
  }
  return count <= 2;  // itself and the folder above
}

/// Why an existing file or folder can't be replaced; empty if it can.
std::string reasonNotToReplace(const WriteTarget& target, const struct stat& status) {
  if (S_ISLNK(status.st_mode)) {
    return "it is a symbolic link";
  }
  if (target.isFolder) {
    return !S_ISDIR(status.st_mode) ? "it isn't a folder"
           : !isOurs(target.path)   ? "it is a folder that kvbigdata didn't write"
                                    : "";
  }
  return S_ISREG(status.st_mode) ? "" : "it isn't a regular file";
}

}  // namespace

void WriteTarget::write(ByteWriter& bytes) const {
  bytes.text(path);
  bytes.text(format);
  bytes.flag(isFolder);
  bytes.flag(overwrites);
  bytes.texts(names);
  bytes.texts(partitionBy);
  bytes.text(token);
}

WriteTarget WriteTarget::read(ByteReader& bytes) {
  WriteTarget target{.path = bytes.text(), .format = bytes.text()};
  target.isFolder = bytes.flag();
  target.overwrites = bytes.flag();
  target.names = bytes.texts();
  target.partitionBy = bytes.texts();
  target.token = bytes.text();
  const bool isToken = target.token.size() == kTokenDigits &&
                       target.token.find_first_not_of("0123456789abcdef") == std::string::npos;
  const bool areKeys = std::ranges::all_of(target.partitionBy, [&](const std::string& key) {
    return std::ranges::find(target.names, key) != target.names.end();
  });
  if (!isToken || !areKeys || findSinkFormat(target.format) == nullptr ||
      !target.path.starts_with('/')) {
    bytes.refuse();
  }
  return target;
}

void setColumns(WriteTarget& target, std::vector<std::string> names,
                std::vector<std::string> partitionBy) {
  for (const std::string& key : partitionBy) {
    if (std::ranges::find(names, key) == names.end()) {
      errors::raiseStep("KALVEX:array:UnknownColumn", {key, errors::shownNames(names)});
    }
    if (std::ranges::count(partitionBy, key) > 1) {
      errors::raiseStep("KALVEX:array:SameName", {key});
    }
  }
  if (!partitionBy.empty() && !target.isFolder) {
    errors::raiseStep("KALVEX:sink:NeedsFolder", {target.path});
  }
  if (!partitionBy.empty() && partitionBy.size() == names.size()) {
    errors::raiseStep("KALVEX:sink:OnlyKeys", {errors::shownNames(names)});
  }
  target.names = std::move(names);
  target.partitionBy = std::move(partitionBy);
}

WriteTarget targetOf(const std::string& path, std::string_view format, bool overwrites) {
  if (path.empty() || path.find('\0') != std::string::npos) {
    raiseCannotWrite(path, path.empty() ? ENOENT : EINVAL, 0);
  }
  fs::path whole = fs::absolute(path).lexically_normal();
  const bool endsWithSlash = !whole.has_filename();
  if (endsWithSlash && whole.has_relative_path()) {
    whole = whole.parent_path();
  }
  WriteTarget target{.path = whole.string(), .overwrites = overwrites, .token = newToken()};
  const SinkFormat* byEnding = endsWithSlash ? nullptr : sinkFormatOfPath(target.path);
  if (!format.empty()) {
    const SinkFormat& given = requireFormat(format);
    if (byEnding != nullptr && byEnding != &given) {
      errors::raiseStep("KALVEX:sink:OtherFormat",
                        {path, std::string(byEnding->name), std::string(given.name)});
    }
    target.format = given.name;
    target.isFolder = byEnding == nullptr;
    return target;
  }
  const std::string ending = endsWithSlash ? "" : whole.extension().string();
  target.format = byEnding != nullptr ? byEnding->name
                                      : requireFormat(ending.empty() ? "parquet" : ending).name;
  target.isFolder = byEnding == nullptr;
  return target;
}

void checkTarget(const WriteTarget& target, std::span<const std::string> sourceFiles) {
  struct stat status {};
  if (::lstat(target.path.c_str(), &status) != 0) {
    if (errno != ENOENT) {
      raiseCannotWrite(target.path, errno, 0);
    }
    return;
  }
  const std::optional<FileIdentity> identity = FileIdentity::of(target.path);
  for (const std::string& file : sourceFiles) {
    if (identity && isAbove(*identity, file)) {
      errors::raiseStep("KALVEX:sink:OverSource", {target.path, file});
    }
  }
  if (!target.overwrites) {
    errors::raiseStep("KALVEX:sink:TargetExists", {target.path});
  }
  if (std::string reason = reasonNotToReplace(target, status); !reason.empty()) {
    errors::raiseStep("KALVEX:sink:NotReplaceable", {target.path, std::move(reason)});
  }
}

}  // namespace kv::runtime

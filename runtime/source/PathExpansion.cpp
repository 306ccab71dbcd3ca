#include "source/PathExpansion.h"

#include <dirent.h>
#include <fmt/format.h>
#include <fmt/ranges.h>
#include <glob.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <filesystem>
#include <memory>
#include <new>
#include <system_error>

#include "kv/errors/StepError.h"
#include "source/pathProblems.h"

namespace kv::runtime {

namespace {

namespace fs = std::filesystem;

bool isPattern(const std::string& path) { return path.find_first_of("*?[") != std::string::npos; }

using Endings = std::vector<std::string_view>;

bool isVisible(const fs::path& file, const Endings& endings) {
  std::string ending = file.extension().string();
  std::transform(ending.begin(), ending.end(), ending.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  return std::ranges::find(endings, ending) != endings.end() &&
         file.filename().string().front() != '.';
}

struct CloseFolder {
  void operator()(DIR* folder) const noexcept { ::closedir(folder); }
};

/// The iterator of std::filesystem isn't used: it ends the process when memory is short.
std::vector<std::string> filesIn(const std::string& path, const Endings& endings) {
  const std::unique_ptr<DIR, CloseFolder> folder(::opendir(path.c_str()));
  if (folder == nullptr) {
    throwUnreachable(path, errno);
  }
  std::vector<std::string> files;
  errno = 0;
  while (const dirent* entry = ::readdir(folder.get())) {
    const fs::path file = fs::path(path) / entry->d_name;
    std::error_code ignored;
    if (isVisible(file, endings) && !fs::is_directory(file, ignored)) {
      files.push_back(file.string());
    }
    errno = 0;
  }
  if (errno != 0) {
    throwUnreachable(path, errno);
  }
  return files;
}

/// The folder that glob() couldn't read; its callback can't receive an argument.
thread_local std::string unreadableFolder;
thread_local int unreadableError = 0;

int noteUnreadable(const char* folder, int error) {
  if (error == ENOENT) {
    return 0;  // no such folder, so nothing matches
  }
  unreadableFolder = folder;
  unreadableError = error;
  return 1;
}

/// A folder that can't be read might contain matching files: leaving them out would give a wrong
/// result.
std::vector<std::string> filesMatching(const std::string& pattern) {
  glob_t matches{};
  const int outcome = ::glob(pattern.c_str(), GLOB_NOSORT, noteUnreadable, &matches);
  std::vector<std::string> files;
  for (std::size_t i = 0; outcome == 0 && i < matches.gl_pathc; ++i) {
    std::error_code ignored;
    if (!fs::is_directory(matches.gl_pathv[i], ignored)) {
      files.emplace_back(matches.gl_pathv[i]);
    }
  }
  ::globfree(&matches);
  if (outcome == GLOB_ABORTED) {
    throwUnreachable(unreadableFolder, unreadableError);
  }
  if (outcome == GLOB_NOSPACE) {
    throw std::bad_alloc();
  }
  return files;
}

std::vector<std::string> sortedOrNoFiles(std::vector<std::string> files, const std::string& path,
                                         const std::string& reason) {
  if (files.empty()) {
    errors::raiseStep("KALVEX:datastore:NoFiles", {path, reason});
  }
  std::sort(files.begin(), files.end());
  return files;
}

}  // namespace

std::vector<std::string> expandPath(const std::string& path, const Endings& endings) {
  std::error_code failure;
  const fs::file_status status = fs::status(path, failure);
  if (!failure) {
    return fs::is_directory(status) ? sortedOrNoFiles(filesIn(path, endings), path,
                                                      fmt::format("the folder contains no {} file",
                                                                  fmt::join(endings, " or ")))
                                    : std::vector<std::string>{path};
  }
  if (isPattern(path) && status.type() == fs::file_type::not_found) {
    return sortedOrNoFiles(filesMatching(path), path, "no file matches the pattern");
  }
  throwUnreachable(path, failure.value());
}

}  // namespace kv::runtime

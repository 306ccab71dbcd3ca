// What a path means depends on what exists: a file of exactly that name comes before a pattern, so
// that names with `*` or `[` can be given. Whatever might hold further files but can't be read is
// an error, since an answer over some of the files would look like any other.

#include "source/PathExpansion.h"

#include <dirent.h>
#include <fmt/format.h>
#include <fmt/ranges.h>
#include <glob.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <filesystem>
#include <iterator>
#include <memory>
#include <new>
#include <set>
#include <system_error>

#include "kv/errors/StepError.h"
#include "source/pathProblems.h"

namespace kv::runtime {

namespace {

namespace fs = std::filesystem;

bool isPattern(const std::string& path) { return path.find_first_of("*?[") != std::string::npos; }

using Endings = std::vector<std::string_view>;

std::string lowerEnding(const fs::path& file) {
  std::string ending = file.extension().string();
  std::transform(ending.begin(), ending.end(), ending.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  return ending;
}

/// The file without the ending of its compression, for CSV; others are returned as they are.
fs::path uncompressed(const fs::path& file) {
  constexpr std::string_view kCompressed[] = {".gz", ".bz2", ".zst", ".lz4"};
  const bool isCompressed =
      std::ranges::find(kCompressed, lowerEnding(file)) != std::end(kCompressed) &&
      lowerEnding(file.stem()) == ".csv";
  return isCompressed ? file.parent_path() / file.stem() : file;
}

bool isVisible(const fs::path& file, const Endings& endings) {
  return std::ranges::find(endings, lowerEnding(uncompressed(file))) != endings.end() &&
         file.filename().string().front() != '.';
}

/// Errors: "KALVEX:datastore:TwoForms" for a file and its compressed form.
void requireOneForm(const std::vector<std::string>& files) {
  const std::set<std::string> all(files.begin(), files.end());
  for (const std::string& file : files) {
    const std::string plain = uncompressed(file).string();
    if (plain != file && all.contains(plain)) {
      errors::raiseStep("KALVEX:datastore:TwoForms", {plain, file});
    }
  }
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
  requireOneForm(files);
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

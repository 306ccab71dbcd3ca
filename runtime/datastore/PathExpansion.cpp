#include "datastore/PathExpansion.h"

#include <fmt/format.h>
#include <glob.h>

#include <algorithm>
#include <cctype>
#include <filesystem>
#include <system_error>

#include "kv/runtime/DataError.h"

namespace kv::runtime {
namespace {

namespace fs = std::filesystem;

bool isPattern(const std::string& path) { return path.find_first_of("*?[") != std::string::npos; }

bool isVisibleCsv(const fs::path& file) {
  std::string ending = file.extension().string();
  std::transform(ending.begin(), ending.end(), ending.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  return ending == ".csv" && file.filename().string().front() != '.';
}

std::vector<std::string> csvFilesIn(const std::string& folder) {
  std::vector<std::string> files;
  std::error_code failure;
  for (fs::directory_iterator entry(folder, failure), end; !failure && entry != end;
       entry.increment(failure)) {
    std::error_code ignored;
    if (isVisibleCsv(entry->path()) && !fs::is_directory(entry->path(), ignored)) {
      files.push_back(entry->path().string());
    }
  }
  if (failure) {
    throw DataError("KALVEX:datastore:FileNotReadable", {folder, failure.message()},
                    fmt::format("The folder '{}' can't be read: {}.", folder, failure.message()));
  }
  return files;
}

std::vector<std::string> filesMatching(const std::string& pattern) {
  glob_t matches{};
  const int outcome = ::glob(pattern.c_str(), GLOB_NOSORT, nullptr, &matches);
  std::vector<std::string> files;
  for (std::size_t i = 0; outcome == 0 && i < matches.gl_pathc; ++i) {
    std::error_code ignored;
    if (!fs::is_directory(matches.gl_pathv[i], ignored)) files.emplace_back(matches.gl_pathv[i]);
  }
  ::globfree(&matches);
  return files;
}

std::vector<std::string> sortedOrNoFiles(std::vector<std::string> files, const std::string& path,
                                         const char* message) {
  if (files.empty()) {
    throw DataError("KALVEX:datastore:NoFiles", {path}, fmt::format(fmt::runtime(message), path));
  }
  std::sort(files.begin(), files.end());
  return files;
}

}  // namespace

std::vector<std::string> expandPath(const std::string& path) {
  std::error_code ignored;
  const fs::file_status status = fs::status(path, ignored);
  if (fs::is_directory(status)) {
    return sortedOrNoFiles(csvFilesIn(path), path, "The folder '{}' holds no .csv file.");
  }
  if (fs::exists(status)) return {path};
  if (isPattern(path)) {
    return sortedOrNoFiles(filesMatching(path), path, "No file matches the pattern '{}'.");
  }
  throw DataError("KALVEX:datastore:FileNotFound", {path},
                  fmt::format("There is no file or folder '{}'.", path));
}

}  // namespace kv::runtime

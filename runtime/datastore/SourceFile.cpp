#include "datastore/SourceFile.h"

#include <fmt/format.h>

#include <filesystem>
#include <system_error>

#include "kv/runtime/DataError.h"

namespace kv::runtime {
namespace {

namespace fs = std::filesystem;

struct FileState {
  std::int64_t bytes = 0;
  std::int64_t modified = 0;

  bool operator==(const FileState&) const = default;
};

FileState stateOf(const std::string& path, std::error_code& failure) {
  FileState state;
  state.bytes = static_cast<std::int64_t>(fs::file_size(path, failure));
  if (failure) return {};
  state.modified = fs::last_write_time(path, failure).time_since_epoch().count();
  return state;
}

[[noreturn]] void throwGone(const std::string& path) {
  throw DataError("KALVEX:datastore:SourceGone", {path},
                  fmt::format("The file '{}', which a saved array reads, is gone.", path));
}

}  // namespace

SourceFile SourceFile::look(const std::string& path) {
  std::error_code failure;
  const FileState state = stateOf(path, failure);
  if (failure == std::errc::no_such_file_or_directory) {
    throw DataError("KALVEX:datastore:FileNotFound", {path},
                    fmt::format("There is no file '{}'.", path));
  }
  if (failure) {
    throw DataError("KALVEX:datastore:FileNotReadable", {path, failure.message()},
                    fmt::format("The file '{}' can't be read: {}.", path, failure.message()));
  }
  return {path, fs::absolute(path).lexically_normal().string(), state.bytes, state.modified, false};
}

void SourceFile::throwIfChanged() const {
  std::error_code failure;
  const FileState state = stateOf(absolutePath, failure);
  if (isFromSave && failure == std::errc::no_such_file_or_directory) throwGone(absolutePath);
  if (failure || state != FileState{bytes, modified}) throwChanged();
}

void SourceFile::throwChanged() const {
  throw DataError("KALVEX:datastore:SourceChanged", {path},
                  fmt::format("The file '{}' has changed since it was {}; {}.", path,
                              isFromSave ? "saved with its array" : "opened",
                              isFromSave ? "read it as a new table" : "open it again to read it"));
}

std::string SourceFile::fingerprint() const {
  return fmt::format("{}|{}|{}\n", absolutePath, bytes, modified);
}

}  // namespace kv::runtime

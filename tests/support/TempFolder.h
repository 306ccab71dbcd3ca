#pragma once

#include <chrono>
#include <filesystem>
#include <fstream>
#include <string>
#include <string_view>

namespace kv::test {

/// A new folder for one test, removed with its content.
class TempFolder {
 public:
  TempFolder() {
    std::string pattern = (std::filesystem::temp_directory_path() / "kv-test-XXXXXX").string();
    path_ = ::mkdtemp(pattern.data());
  }
  ~TempFolder() { std::filesystem::remove_all(path_); }
  TempFolder(const TempFolder&) = delete;
  TempFolder& operator=(const TempFolder&) = delete;

  std::string path(std::string_view name = {}) const { return (path_ / name).string(); }

  /// Writes `bytes` to the file `name` in this folder and returns its path.
  std::string write(std::string_view name, std::string_view bytes) const {
    std::filesystem::create_directories((path_ / name).parent_path());
    std::ofstream(path_ / name, std::ios::binary) << bytes;
    return path(name);
  }

  /// The same, of a file at rest, so that opening it doesn't wait for the clock.
  /// A file of that name is removed first: one that is cut to nothing and written again is flushed
  /// to the disk by some file systems, which takes longer than a test.
  std::string writeAtRest(std::string_view name, std::string_view bytes) const {
    std::filesystem::remove(path_ / name);
    std::string written = write(name, bytes);
    std::filesystem::last_write_time(
        written, std::filesystem::file_time_type::clock::now() - std::chrono::hours(1));
    return written;
  }

 private:
  std::filesystem::path path_;
};

}  // namespace kv::test

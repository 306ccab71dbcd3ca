#pragma once

#include <filesystem>
#include <string_view>
#include <vector>

namespace kv::runtime {

/// The folders of the control groups of this process that have the files of a controller, such as
/// `cpu`, in one version of control groups: its own group and those above it. Folders that aren't
/// there may be among them.
struct ControlGroups {
  std::vector<std::filesystem::path> v1;
  std::vector<std::filesystem::path> v2;

  /// `root`: where the system's files are.
  ControlGroups(const std::filesystem::path& root, std::string_view controller);
};

}  // namespace kv::runtime

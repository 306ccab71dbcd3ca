#include "executor/controlGroups.h"

#include <fstream>
#include <string>

namespace kv::runtime {

namespace {

namespace fs = std::filesystem;

/// Adds a group and those above it. In a container the mount may be the group itself, whose name is
/// that outside.
void add(std::vector<fs::path>& folders, fs::path group, const fs::path& name) {
  folders.push_back(group);
  for (const fs::path& part : name.relative_path()) {
    group /= part;
    folders.push_back(group);
  }
}

}  // namespace

ControlGroups::ControlGroups(const fs::path& root, std::string_view controller) {
  const fs::path mount = root / "sys/fs/cgroup";
  const std::string wanted = "," + std::string(controller) + ",";
  std::ifstream groups(root / "proc/self/cgroup");
  for (std::string line; std::getline(groups, line);) {  // "<number>:<controllers>:<name>"
    const std::size_t first = line.find(':');
    const std::size_t second = line.find(':', first + 1);
    if (second == std::string::npos) {
      continue;
    }
    const std::string controllers = "," + line.substr(first + 1, second - first - 1) + ",";
    const fs::path name = line.substr(second + 1);
    if (controllers == ",,") {
      add(v2, mount, name);
      add(v2, mount / "unified", name);
    } else if (controllers.find(wanted) != std::string::npos) {
      add(v1, mount / controller, name);
    }
  }
}

}  // namespace kv::runtime

#include "source/distinctNames.h"

#include <fmt/format.h>

#include <cstddef>
#include <map>
#include <set>
#include <utility>

namespace kv::runtime {

std::vector<std::string> distinctNames(std::vector<std::string> header) {
  std::set<std::string> taken(header.begin(), header.end());
  taken.erase("");
  std::set<std::string> seen;
  std::map<std::string, std::size_t> occurrences;
  for (std::size_t i = 0; i < header.size(); ++i) {
    std::string& name = header[i];
    if (!name.empty() && seen.insert(name).second) {
      continue;
    }
    const std::string base = name.empty() ? fmt::format("column {}", i + 1) : std::move(name);
    std::size_t& number = occurrences.try_emplace(base, 1).first->second;
    name = base;
    while (!taken.insert(name).second) {
      name = fmt::format("{}.{}", base, ++number);
    }
  }
  return header;
}

}  // namespace kv::runtime

#include "formula/nearNames.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <numeric>
#include <utility>

namespace kv::shell {

namespace {

constexpr std::size_t kMostNear = 3;
constexpr std::size_t kMostListed = 40;
constexpr std::size_t kLongestCompared = 200;  // the distance costs the product of the lengths

char lowered(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; }

/// Levenshtein's distance, by bytes; case doesn't count.
std::size_t distance(std::string_view a, std::string_view b) {
  std::vector<std::size_t> row(b.size() + 1);
  std::iota(row.begin(), row.end(), std::size_t{0});
  for (std::size_t i = 1; i <= a.size(); ++i) {
    std::size_t diagonal = std::exchange(row[0], i);
    for (std::size_t j = 1; j <= b.size(); ++j) {
      const std::size_t changed = diagonal + (lowered(a[i - 1]) == lowered(b[j - 1]) ? 0 : 1);
      diagonal = std::exchange(row[j], std::min({changed, row[j] + 1, row[j - 1] + 1}));
    }
  }
  return row.back();
}

std::vector<std::string> spelled(std::span<const std::string> names, Spelling spelling) {
  std::vector<std::string> all(names.begin(), names.end());
  if (spelling != nullptr) std::ranges::transform(all, all.begin(), spelling);
  return all;
}

}  // namespace

std::vector<std::string> nearNames(std::string_view wanted, std::span<const std::string> names) {
  if (wanted.size() > kLongestCompared) return {};
  const std::size_t farthest = std::max<std::size_t>(1, (wanted.size() + 2) / 3);
  std::vector<std::pair<std::size_t, std::string>> found;
  for (const std::string& name : names) {
    if (name.size() > wanted.size() + farthest) continue;
    const std::size_t apart = distance(wanted, name);
    if (apart <= farthest) found.emplace_back(apart, name);
  }
  std::ranges::stable_sort(found, {}, [](const auto& entry) { return entry.first; });
  found.resize(std::min(found.size(), kMostNear));
  std::vector<std::string> near;
  for (auto& [apart, name] : found) near.push_back(std::move(name));
  return near;
}

std::string listNames(std::string_view kind, std::string_view wanted,
                      std::span<const std::string> names, Spelling spelling) {
  std::string text;
  if (const auto near = nearNames(wanted, names); !near.empty()) {
    text = fmt::format("Did you mean {}?\n", fmt::join(spelled(near, spelling), " or "));
  }
  const auto listed = spelled(names.first(std::min(names.size(), kMostListed)), spelling);
  text += fmt::format("The {} there are: {}", kind, fmt::join(listed, ", "));
  if (listed.size() < names.size())
    text += fmt::format(" and {} more", names.size() - listed.size());
  return text + ".";
}

}  // namespace kv::shell

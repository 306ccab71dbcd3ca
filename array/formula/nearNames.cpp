#include "formula/nearNames.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <numeric>
#include <utility>

#include "formula/utf8.h"

namespace kv::formula {

namespace {

constexpr std::size_t kMostNear = 3;
constexpr std::size_t kMostListed = 40;
constexpr std::size_t kLongestCompared = 200;  // the cost is the product of the lengths

/// The number of edits that turn `a` into `b`, by bytes. Optimal string alignment: Levenshtein's
/// distance, but swapping two neighbours is one edit.
std::size_t distance(std::string_view a, std::string_view b) {
  std::vector<std::size_t> row(b.size() + 1), before(row), twoBefore(row);
  std::iota(row.begin(), row.end(), std::size_t{0});
  const auto areEqual = [&](std::size_t i, std::size_t j) { return a[i - 1] == b[j - 1]; };
  for (std::size_t i = 1; i <= a.size(); ++i) {
    std::swap(twoBefore, before);
    std::swap(before, row);
    row[0] = i;
    for (std::size_t j = 1; j <= b.size(); ++j) {
      const std::size_t changed = before[j - 1] + (areEqual(i, j) ? 0 : 1);
      row[j] = std::min({changed, before[j] + 1, row[j - 1] + 1});
      if (i > 1 && j > 1 && areEqual(i, j - 1) && areEqual(i - 1, j)) {
        row[j] = std::min(row[j], twoBefore[j - 2] + 1);
      }
    }
  }
  return row.back();
}

/// One edit per four letters: `median` isn't `mean`. For short names one, for the shortest none.
std::size_t mostEdits(std::size_t length) {
  return length < 3 ? 0 : std::clamp<std::size_t>(length / 4, 1, 3);
}

std::vector<std::string> spelled(std::span<const std::string> names, Spelling spelling) {
  std::vector<std::string> all(names.begin(), names.end());
  if (spelling != nullptr) {
    std::ranges::transform(all, all.begin(), spelling);
  }
  std::ranges::transform(all, all.begin(), shortened);
  return all;
}

}  // namespace

std::vector<std::string> nearNames(std::string_view wanted, std::span<const std::string> names) {
  if (wanted.size() > kLongestCompared) {
    return {};
  }
  std::vector<std::pair<std::size_t, std::string>> found;
  for (const std::string& name : names) {
    if (name.size() > kLongestCompared) {
      continue;
    }
    const std::size_t edits = distance(lowered(wanted), lowered(name));
    if (edits <= mostEdits(std::max(wanted.size(), name.size()))) {
      found.emplace_back(edits, name);
    }
  }
  const auto editsOf = [](const auto& entry) { return entry.first; };
  std::ranges::stable_sort(found, {}, editsOf);
  if (!found.empty() && found.front().first == 0) {
    found.erase(std::ranges::upper_bound(found, std::size_t{0}, {}, editsOf), found.end());
  }
  found.resize(std::min(found.size(), kMostNear));
  std::vector<std::string> near;
  for (auto& [edits, name] : found) {
    near.push_back(std::move(name));
  }
  return near;
}

std::string listNames(std::string_view kind, std::string_view wanted,
                      std::span<const std::string> names, Spelling spelling) {
  std::string text;
  if (const auto near = nearNames(wanted, names); !near.empty()) {
    text = fmt::format("Did you mean {}?\n", fmt::join(spelled(near, spelling), " or "));
  }
  const auto listed = spelled(names.first(std::min(names.size(), kMostListed)), spelling);
  text += fmt::format("Available {}: {}", kind, fmt::join(listed, ", "));
  if (listed.size() < names.size()) {
    text += fmt::format(" and {} more", names.size() - listed.size());
  }
  return text + ".";
}

}  // namespace kv::formula

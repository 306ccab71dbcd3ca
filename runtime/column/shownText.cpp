#include "kv/runtime/shownText.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstddef>

namespace kv::runtime {
namespace {

constexpr std::size_t kShownBytes = 80;
constexpr std::size_t kShownNames = 40;

bool continuesCharacter(char byte) { return (static_cast<unsigned char>(byte) & 0xC0U) == 0x80U; }

}  // namespace

std::string shownText(std::string_view text) {
  if (text.size() <= kShownBytes) {
    return std::string(text);
  }
  std::size_t end = kShownBytes;
  while (end > 0 && continuesCharacter(text[end])) {
    --end;
  }
  return fmt::format("{}... ({} bytes)", text.substr(0, end), text.size());
}

std::string shownNames(std::span<const std::string> names) {
  std::string list;
  for (const std::string& name : names.first(std::min(names.size(), kShownNames))) {
    list += (list.empty() ? "" : ", ") + shownText(name);
  }
  if (names.size() > kShownNames) {
    list += fmt::format(" and {} more", names.size() - kShownNames);
  }
  return list;
}

}  // namespace kv::runtime

#include "kv/errors/shownText.h"

#include <algorithm>
#include <cstddef>

namespace kv::errors {

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
  return std::string(text.substr(0, end)) + "... (" + std::to_string(text.size()) + " bytes)";
}

std::string shownNames(std::span<const std::string> names) {
  std::string list;
  for (const std::string& name : names.first(std::min(names.size(), kShownNames))) {
    list += (list.empty() ? "" : ", ") + shownText(name);
  }
  if (names.size() > kShownNames) {
    list += " and " + std::to_string(names.size() - kShownNames) + " more";
  }
  return list;
}

}  // namespace kv::errors

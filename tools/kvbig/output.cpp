#include "output.h"

#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <stdexcept>

#include "formula/invisible.h"
#include "formula/utf8.h"

namespace kv::shell {

namespace {

using formula::Character;

/// Calls `visit` with each character of `text` and its bytes. A byte that isn't UTF-8 is passed as
/// a character of length 0 with that byte as its code.
template <class Visit>
void forEachCharacter(std::string_view text, Visit&& visit) {
  while (!text.empty()) {
    Character character = formula::firstCharacter(text);
    if (character.length == 0) {
      character.code = static_cast<unsigned char>(text.front());
    }
    const std::size_t length = std::max<std::size_t>(character.length, 1);
    visit(character, text.substr(0, length));
    text.remove_prefix(length);
  }
}

bool isEscaped(Character character) {
  return character.length == 0 || formula::isInvisible(character.code);
}

/// In UTF-16, as JSON requires.
std::string jsonEscape(char32_t code) {
  const auto unit = static_cast<std::uint32_t>(code);
  if (unit <= 0xFFFF) {
    return fmt::format("\\u{:04x}", unit);
  }
  return fmt::format("\\u{:04x}\\u{:04x}", 0xD7C0 + (unit >> 10), 0xDC00 + (unit & 0x3FF));
}

}  // namespace

void writeOut(std::string_view text) {
  const bool isWritten = std::fwrite(text.data(), 1, text.size(), stdout) == text.size();
  if (isWritten && std::fflush(stdout) == 0) {
    return;
  }
  throw std::runtime_error(fmt::format("can't write the results: {}", std::strerror(errno)));
}

std::string printable(std::string_view text) {
  std::string shown;
  forEachCharacter(text, [&](Character character, std::string_view bytes) {
    if (!isEscaped(character)) {
      shown += bytes;
    } else if (character.code > 0xFF) {
      shown += fmt::format(fmt::runtime(character.code > 0xFFFF ? "\\U{:08x}" : "\\u{:04x}"),
                           static_cast<std::uint32_t>(character.code));
    } else {
      shown += fmt::format("\\x{:02x}", static_cast<std::uint32_t>(character.code));
    }
  });
  return shown;
}

std::string printableLines(std::string_view text) {
  std::string lines;
  for (std::size_t begin = 0; begin <= text.size();) {
    const std::size_t end = std::min(text.find('\n', begin), text.size());
    lines += (begin > 0 ? "\n" : "") + printable(text.substr(begin, end - begin));
    begin = end + 1;
  }
  return lines;
}

std::string jsonText(std::string_view text) {
  std::string quoted = "\"";
  forEachCharacter(text, [&](Character character, std::string_view bytes) {
    if (character.length == 0) {
      quoted += "\\ufffd";
    } else if (character.code == U'"' || character.code == U'\\') {
      quoted += '\\';
      quoted += bytes;
    } else if (isEscaped(character)) {
      quoted += jsonEscape(character.code);
    } else {
      quoted += bytes;
    }
  });
  return quoted + '"';
}

std::string jsonTexts(const std::vector<std::string>& texts) {
  std::string list;
  for (const std::string& text : texts) {
    list += (list.empty() ? "" : ", ") + jsonText(text);
  }
  return "[" + list + "]";
}

std::string typeOption(std::string_view column, std::string_view type) {
  std::string quoted;
  for (const char c : column) {
    quoted += c == '\'' ? R"('\'')" : std::string(1, c);
  }
  return fmt::format("--type '{}={}'", quoted, type);
}

std::string typeAdvice(std::string_view column, std::string_view type) {
  return column.size() <= kLongestAdvised ? typeOption(column, type)
                                          : fmt::format("--type with its name and \"={}\"", type);
}

std::size_t displayWidth(std::string_view text) {
  const auto startsCharacter = [](char byte) {
    return (static_cast<unsigned char>(byte) & 0xC0) != 0x80;
  };
  return static_cast<std::size_t>(std::ranges::count_if(text, startsCharacter));
}

std::string padded(std::string_view text, std::size_t width) {
  const std::size_t taken = displayWidth(text);
  return std::string(text) + std::string(width > taken ? width - taken : 0, ' ');
}

}  // namespace kv::shell

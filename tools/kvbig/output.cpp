#include "output.h"

#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <stdexcept>

namespace kv::shell {

void writeOut(std::string_view text) {
  const bool isWritten = std::fwrite(text.data(), 1, text.size(), stdout) == text.size();
  if (isWritten && std::fflush(stdout) == 0) return;
  throw std::runtime_error(fmt::format("can't write the results: {}", std::strerror(errno)));
}

std::string printable(std::string_view text) {
  std::string shown;
  for (std::size_t i = 0; i < text.size(); ++i) {
    const auto byte = static_cast<unsigned char>(text[i]);
    const auto following = static_cast<unsigned char>(i + 1 < text.size() ? text[i + 1] : 0);
    if (byte < 0x20 || byte == 0x7F) {
      shown += fmt::format("\\x{:02x}", byte);
    } else if (byte == 0xC2 && following >= 0x80 && following < 0xA0) {  // U+0080 to U+009F
      shown += fmt::format("\\x{:02x}", following);
      ++i;
    } else {
      shown += text[i];
    }
  }
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
  for (const char c : text) {
    if (c == '"' || c == '\\') {
      quoted += '\\';
      quoted += c;
    } else if (static_cast<unsigned char>(c) < 0x20) {
      quoted += fmt::format("\\u{:04x}", static_cast<unsigned>(c));
    } else {
      quoted += c;
    }
  }
  return quoted + '"';
}

std::string jsonTexts(const std::vector<std::string>& texts) {
  std::string list;
  for (const std::string& text : texts) list += (list.empty() ? "" : ", ") + jsonText(text);
  return "[" + list + "]";
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

#include <charconv>
#include <optional>

#include "kv/errors/ErrorRow.h"
#include "kv/errors/shownText.h"

namespace kv::errors {

namespace {

constexpr std::string_view kShort = ":short";

/// A place for an argument at the beginning of a text: "{0}" or "{0:short}".
struct Place {
  std::size_t argument = 0;
  std::size_t bytes = 0;  ///< of the place itself
  bool isShort = false;
};

std::optional<Place> placeAt(std::string_view text) {
  const std::size_t close = text.find('}');
  if (close == std::string_view::npos) {
    return std::nullopt;
  }
  Place place{.bytes = close + 1};
  const char* const end = text.data() + close;
  const auto [rest, error] = std::from_chars(text.data() + 1, end, place.argument);
  const std::string_view option(rest, static_cast<std::size_t>(end - rest));
  place.isShort = option == kShort;
  const bool isPlace = error == std::errc() && (option.empty() || place.isShort);
  return isPlace ? std::optional(place) : std::nullopt;
}

std::string listed(std::string_view id, std::span<const std::string> arguments) {
  std::string text(id);
  for (std::size_t i = 0; i < arguments.size(); ++i) {
    text += i == 0 ? ": " : ", ";
    text += arguments[i];
  }
  return text;
}

}  // namespace

std::string fillIn(std::string_view text, std::span<const std::string> arguments) {
  std::string filled;
  while (!text.empty()) {
    const std::size_t open = text.find('{');
    filled += text.substr(0, open);
    if (open == std::string_view::npos) {
      break;
    }
    text.remove_prefix(open);
    const std::optional<Place> place = placeAt(text);
    if (place && place->argument < arguments.size()) {
      const std::string& argument = arguments[place->argument];
      filled += place->isShort ? shownText(argument) : argument;
      text.remove_prefix(place->bytes);
    } else {
      filled += '{';
      text.remove_prefix(1);
    }
  }
  return filled;
}

std::string formatMessage(std::string_view id, std::span<const std::string> arguments) {
  const ErrorRow* row = findErrorRow(id);
  return row != nullptr ? fillIn(row->text, arguments) : listed(id, arguments);
}

}  // namespace kv::errors

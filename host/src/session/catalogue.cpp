#include "session/catalogue.h"

#include <charconv>
#include <map>
#include <mutex>
#include <optional>
#include <shared_mutex>

namespace kv::host {
namespace {

/// Texts by id; of the host at first, then of the libraries that bring more.
class Catalogue {
 public:
  static Catalogue& instance() {
    static Catalogue catalogue;
    return catalogue;
  }

  void add(std::span<const CatalogueEntry> entries) {
    const std::unique_lock lock(mutex_);
    for (const CatalogueEntry& entry : entries) {
      texts_.insert_or_assign(std::string(entry.identifier), std::string(entry.text));
    }
  }

  std::optional<std::string> find(std::string_view identifier) const {
    const std::shared_lock lock(mutex_);
    const auto found = texts_.find(identifier);
    return found == texts_.end() ? std::nullopt : std::optional(found->second);
  }

 private:
  Catalogue() { add(hostCatalogue()); }

  mutable std::shared_mutex mutex_;
  std::map<std::string, std::string, std::less<>> texts_;
};

/// Puts the arguments in the places {0}, {1}, ...; a place without an argument stays as it is.
std::string fillIn(std::string_view text, std::span<const std::string> arguments) {
  std::string filled;
  while (!text.empty()) {
    const std::size_t open = text.find('{');
    filled += text.substr(0, open);
    if (open == std::string_view::npos) {
      break;
    }
    text.remove_prefix(open);
    const std::size_t close = text.find('}');
    std::size_t index = arguments.size();
    if (close != std::string_view::npos) {
      std::from_chars(text.data() + 1, text.data() + close, index);
    }
    if (index < arguments.size()) {
      filled += arguments[index];
      text.remove_prefix(close + 1);
    } else {
      filled += '{';
      text.remove_prefix(1);
    }
  }
  return filled;
}

std::string listed(std::string_view identifier, std::span<const std::string> arguments) {
  std::string text(identifier);
  for (std::size_t i = 0; i < arguments.size(); ++i) {
    text += i == 0 ? ": " : ", ";
    text += arguments[i];
  }
  return text;
}

}  // namespace

std::string catalogueText(std::string_view identifier, std::span<const std::string> arguments) {
  const std::optional<std::string> text = Catalogue::instance().find(identifier);
  return text ? fillIn(*text, arguments) : listed(identifier, arguments);
}

void addToCatalogue(std::span<const CatalogueEntry> entries) { Catalogue::instance().add(entries); }

}  // namespace kv::host

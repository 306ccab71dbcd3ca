#include <map>
#include <mutex>
#include <optional>
#include <shared_mutex>

#include "kv/errors/ErrorRow.h"
#include "kv/host/errors.h"

namespace kv::host {

namespace {

/// Texts that libraries have added, by id; they take precedence over the table.
class AddedTexts {
 public:
  static AddedTexts& instance() {
    static AddedTexts texts;
    return texts;
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
  mutable std::shared_mutex mutex_;
  std::map<std::string, std::string, std::less<>> texts_;
};

}  // namespace

std::string catalogueText(std::string_view identifier, std::span<const std::string> arguments) {
  const std::optional<std::string> added = AddedTexts::instance().find(identifier);
  return added ? errors::fillIn(*added, arguments) : errors::formatMessage(identifier, arguments);
}

void addToCatalogue(std::span<const CatalogueEntry> entries) {
  AddedTexts::instance().add(entries);
}

}  // namespace kv::host

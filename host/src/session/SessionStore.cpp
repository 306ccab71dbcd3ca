#include "session/SessionStore.h"

#include <atomic>
#include <stdexcept>
#include <string>

#include "session/SessionState.h"

namespace kv::host {

SessionStore::Slot* SessionStore::find(std::size_t id) noexcept {
  return id < slots_.size() ? slots_[id].get() : nullptr;
}

SessionStore::Slot& SessionStore::findOrInsert(std::size_t id, Slot&& slot) {
  if (id >= slots_.size()) {
    slots_.resize(id + 1);
  }
  if (slots_[id] == nullptr) {
    slots_[id] = std::make_unique<Slot>(std::move(slot));
  }
  return *slots_[id];
}

void SessionStore::clear() noexcept {
  while (!slots_.empty()) {
    const std::unique_ptr<Slot> last = std::move(slots_.back());
    slots_.pop_back();
  }
}

}  // namespace kv::host

namespace foundation::usm {

using scope::Kvm;

std::size_t Detail<Kvm>::getNextID(const std::type_info&) {
  static std::atomic<std::size_t> next{0};
  return next++;
}

Slot* Detail<Kvm>::find(std::size_t id, const std::type_info&) noexcept {
  kv::host::SessionState* session = kv::host::currentSession();
  return session != nullptr ? session->store.find(id) : nullptr;
}

Slot& Detail<Kvm>::findOrInsert(std::size_t id, const std::type_info&, Slot&& slot) {
  return kv::host::requireSession().store.findOrInsert(id, std::move(slot));
}

Slot& Detail<Kvm>::findOrFail(std::size_t id, const std::type_info& tag) {
  if (Slot* slot = find(id, tag)) {
    return *slot;
  }
  throw std::out_of_range(std::string("the session stores nothing under ") + tag.name());
}

}  // namespace foundation::usm

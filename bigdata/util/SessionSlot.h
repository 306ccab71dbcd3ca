#pragma once

#include <cstddef>
#include <typeinfo>
#include <utility>

#include "foundation/usm.h"

/// Objects of which each session of the host has at most one, named by a tag type.
namespace bigdata::util {

using SessionStore = foundation::usm::Detail<foundation::usm::scope::Kvm>;

template <class Tag>
std::size_t sessionSlotId() {
  static const std::size_t id = SessionStore::getNextID(typeid(Tag));
  return id;
}

/// The `Stored` of the current session under `Tag`; on first use in the session, what `make` returns.
/// Lives: as long as the session.
template <class Tag, class Stored, class Make>
Stored& sessionSlot(const Make& make) {
  const std::size_t id = sessionSlotId<Tag>();
  if (foundation::usm::Slot* slot = SessionStore::find(id, typeid(Tag))) {
    return *static_cast<Stored*>(slot->get());
  }
  foundation::usm::Slot made(new Stored(make()),
                             [](void* stored) { delete static_cast<Stored*>(stored); });
  return *static_cast<Stored*>(SessionStore::findOrInsert(id, typeid(Tag), std::move(made)).get());
}

}  // namespace bigdata::util

#pragma once

#include <cstddef>
#include <typeinfo>
#include <utility>

#include "foundation/usm.h"

/// Objects of which each session of the host has at most one, identified by a tag type.
namespace bigdata::util {

using SessionStore = foundation::usm::Detail<foundation::usm::scope::Kvm>;

template <class Tag>
std::size_t sessionSlotId() {
  static const std::size_t id = SessionStore::getNextID(typeid(Tag));
  return id;
}

/// The `Stored` of the current session under `Tag`; null if the session has none.
template <class Tag, class Stored>
Stored* findSessionSlot() {
  const foundation::usm::Slot* slot = SessionStore::find(sessionSlotId<Tag>(), typeid(Tag));
  return slot == nullptr ? nullptr : static_cast<Stored*>(slot->get());
}

/// The `Stored` of the current session under `Tag`; on first use in the session, what `make`
/// returns.
///
/// Lives: as long as the session.
template <class Tag, class Stored, class Make>
Stored& sessionSlot(const Make& make) {
  if (Stored* stored = findSessionSlot<Tag, Stored>()) {
    return *stored;
  }
  foundation::usm::Slot made(new Stored(make()),
                             [](void* stored) { delete static_cast<Stored*>(stored); });
  foundation::usm::Slot& slot =
      SessionStore::findOrInsert(sessionSlotId<Tag>(), typeid(Tag), std::move(made));
  return *static_cast<Stored*>(slot.get());
}

}  // namespace bigdata::util

#pragma once

#include <cstddef>
#include <memory>
#include <typeinfo>

#include "kv/host/export.h"

/// Session-scoped storage: named slots, one set per session, destroyed with it.
namespace foundation::usm {

namespace scope {
struct Kvm;
}

/// A stored object and its deleter.
using Slot = std::unique_ptr<void, void (*)(void*)>;

template <class Scope>
struct Detail;

/// Threads: `getNextID` any; the others the thread of the current session.
template <>
struct KV_HOST_API Detail<scope::Kvm> {
  /// A new id for the tag; called once per process and tag.
  static std::size_t getNextID(const std::type_info& tag);

  /// The slot of the current session, or null if it has none.
  static Slot* find(std::size_t id, const std::type_info& tag) noexcept;

  /// The slot of the current session; `slot` is moved in if there was none, and otherwise stays
  /// with the caller.
  static Slot& findOrInsert(std::size_t id, const std::type_info& tag, Slot&& slot);

  /// Errors: std::out_of_range naming the tag if the session has no such slot.
  static Slot& findOrFail(std::size_t id, const std::type_info& tag);
};

}  // namespace foundation::usm

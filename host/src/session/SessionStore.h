#pragma once

#include <cstddef>
#include <memory>
#include <vector>

#include "foundation/usm.h"

namespace kv::host {

/// The named slots of one session.
class SessionStore {
 public:
  using Slot = foundation::usm::Slot;

  /// Null if the slot is empty. Lives: until `clear`.
  Slot* find(std::size_t id) noexcept;
  Slot& findOrInsert(std::size_t id, Slot&& slot);

  /// Destroys what is stored, last id first, and what their destructors store meanwhile.
  void clear() noexcept;

 private:
  std::vector<std::unique_ptr<Slot>> slots_;
};

}  // namespace kv::host

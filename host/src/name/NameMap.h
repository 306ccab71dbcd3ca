#pragma once

#include <cassert>
#include <cstddef>
#include <cstdint>
#include <utility>
#include <vector>

#include "kcos/interned.h"

namespace kv::host {

/// A flat hash table from interned names to values: open addressing, one probe mostly.
///
/// There is no removal. Pointers to values are good until the next insertion.
template <class V>
class NameMap {
 public:
  /// Null if the name isn't there; the empty name never is.
  const V* find(kcos::COSInternedBase name) const noexcept {
    if (entries_.empty() || name.empty()) {
      return nullptr;
    }
    for (std::size_t at = home(name);; at = (at + 1) & mask()) {
      const Entry& entry = entries_[at];
      if (entry.name == name) {
        return &entry.value;
      }
      if (entry.name.empty()) {
        return nullptr;
      }
    }
  }
  V* find(kcos::COSInternedBase name) noexcept {
    return const_cast<V*>(std::as_const(*this).find(name));
  }

  bool contains(kcos::COSInternedBase name) const noexcept { return find(name) != nullptr; }

  /// The value of `name`, a default-made one if it is new. Requires: a name that isn't empty.
  V& operator[](kcos::COSInternedBase name) {
    assert(!name.empty());
    if (2 * (size_ + 1) > entries_.size()) {
      grow();
    }
    Entry& entry = entries_[place(name)];
    if (entry.name.empty()) {
      entry.name = name;
      ++size_;
    }
    return entry.value;
  }

  template <class Visit>
  void forEach(Visit visit) const {
    for (const Entry& entry : entries_) {
      if (!entry.name.empty()) {
        visit(entry.name, entry.value);
      }
    }
  }

  std::size_t size() const noexcept { return size_; }

 private:
  struct Entry {
    kcos::COSInternedBase name;
    V value{};
  };

  std::size_t mask() const noexcept { return entries_.size() - 1; }

  /// Names are unique by address, so the address is hashed and the text stays untouched.
  std::size_t home(kcos::COSInternedBase name) const noexcept {
    const auto bits = static_cast<std::uint64_t>(reinterpret_cast<std::uintptr_t>(name.id()));
    return static_cast<std::size_t>((bits * 0x9E3779B97F4A7C15ull) >> 32) & mask();
  }

  std::size_t place(kcos::COSInternedBase name) const noexcept {
    std::size_t at = home(name);
    while (!entries_[at].name.empty() && entries_[at].name != name) {
      at = (at + 1) & mask();
    }
    return at;
  }

  void grow() {
    std::vector<Entry> old(entries_.empty() ? 8 : 2 * entries_.size());
    old.swap(entries_);
    for (Entry& entry : old) {
      if (!entry.name.empty()) {
        entries_[place(entry.name)] = std::move(entry);
      }
    }
  }

  std::vector<Entry> entries_;
  std::size_t size_ = 0;
};

}  // namespace kv::host

// Names are looked up far more often than they are new, from all threads. So the table is read
// without a lock: a slot goes from null to an entry once and never changes again, and when the
// table is full a larger one replaces it while readers may still be in the old one, which is kept.
// Only inserting takes the lock.

#include "kcos/interned.h"

#include <atomic>
#include <memory>
#include <mutex>
#include <vector>

namespace kcos::internal {

namespace {

using Entry = COSInternedBase::Entry;

/// Open addressing with a power of two of slots; a slot goes from null to an entry and stays.
struct Table {
  explicit Table(std::size_t slotCount)
      : mask(slotCount - 1), slots(std::make_unique<std::atomic<const Entry*>[]>(slotCount)) {}

  /// The entry of `name`, or null; `index` is where it is, or where it would go.
  const Entry* find(NameRef name, std::size_t& index) const noexcept {
    for (index = static_cast<std::size_t>(name.hash()) & mask;; index = (index + 1) & mask) {
      const Entry* entry = slots[index].load(std::memory_order_acquire);
      if (entry == nullptr || (entry->hash == name.hash() && entry->text == name.text())) {
        return entry;
      }
    }
  }

  std::size_t mask;
  std::unique_ptr<std::atomic<const Entry*>[]> slots;
};

/// Where names are looked up, without a lock; null until there is one.
constinit std::atomic<const Table*> newest = nullptr;

/// The names of the process. Outgrown tables are kept, since a reader may be in one; together
/// they are smaller than the newest.
class Names {
 public:
  Names() { newest.store(tables_.back().get(), std::memory_order_release); }

  const Entry* insert(NameRef name) {
    const std::lock_guard lock(mutex_);
    if ((count_ + 1) * 2 > tables_.back()->mask + 1) {
      grow();
    }
    Table& table = *tables_.back();
    std::size_t index = 0;
    if (const Entry* entry = table.find(name, index)) {
      return entry;  // another thread was faster
    }
    const Entry* entry = new Entry{std::string(name.text()), name.hash()};
    table.slots[index].store(entry, std::memory_order_release);
    ++count_;
    return entry;
  }

 private:
  void grow() {
    const Table& old = *tables_.back();
    auto larger = std::make_unique<Table>((old.mask + 1) * 2);
    for (std::size_t i = 0; i <= old.mask; ++i) {
      if (const Entry* entry = old.slots[i].load(std::memory_order_relaxed)) {
        std::size_t index = 0;
        larger->find(NameRef::of(entry->text), index);
        larger->slots[index].store(entry, std::memory_order_relaxed);
      }
    }
    tables_.push_back(std::move(larger));
    newest.store(tables_.back().get(), std::memory_order_release);
  }

  std::mutex mutex_;
  std::vector<std::unique_ptr<Table>> tables_ = [] {
    std::vector<std::unique_ptr<Table>> first;
    first.push_back(std::make_unique<Table>(4096));
    return first;
  }();
  std::size_t count_ = 0;
};

Names& names() {
  static Names& process = *new Names;  // never destroyed: names outlive static objects
  return process;
}

}  // namespace

COSInternedBase makeInterned(NameRef name) {
  if (name.text().empty()) {
    return COSInternedBase();
  }
  if (const Table* table = newest.load(std::memory_order_acquire)) {
    std::size_t index = 0;
    if (const Entry* entry = table->find(name, index)) {
      return COSInternedBase(entry);
    }
  }
  return COSInternedBase(names().insert(name));
}

}  // namespace kcos::internal

#pragma once

#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <new>
#include <utility>

namespace kv::host {

class Heap;
class Object;
class ReleaseQueue;

/// Memory for objects of one heap, with their bitmaps beside them. Aligned to its size, so that an
/// object's address gives its slab.
struct Slab {
  static constexpr std::size_t kBytes = 256 * 1024;
  static constexpr std::size_t kObjectBytes = 64;
  static constexpr std::size_t kPlaces = kBytes / kObjectBytes;
  static constexpr std::size_t kWords = kPlaces / 64;

  Slab(Heap& owner, ReleaseQueue& releaseQueue);

  static Slab& of(const void* object) noexcept {
    return *reinterpret_cast<Slab*>(reinterpret_cast<std::uintptr_t>(object) & ~(kBytes - 1));
  }
  static Slab& of(const Object& object) noexcept { return of(static_cast<const void*>(&object)); }

  /// A place for a new object: one that was freed last, or one never used. Null if there is none.
  void* take() noexcept {
    if (freePlaces != nullptr) {
      ++usedPlaces;
      void* const taken = std::exchange(freePlaces, *static_cast<void**>(freePlaces));
      __builtin_prefetch(freePlaces, 1);  // mostly freed long ago, and needed soon
      return taken;
    }
    if (nextPlace == kPlaces) {
      return nullptr;
    }
    ++usedPlaces;
    return place(nextPlace++);
  }
  void give(void* freed) noexcept {
    --usedPlaces;
    *static_cast<void**>(freed) = freePlaces;
    freePlaces = freed;
  }

  void* place(std::size_t index) noexcept {
    return reinterpret_cast<std::byte*>(this) + index * kObjectBytes;
  }
  static std::size_t indexOf(const void* object) noexcept {
    return (reinterpret_cast<std::uintptr_t>(object) & (kBytes - 1)) / kObjectBytes;
  }

  void add(const void* object) noexcept { used[indexOf(object) / 64] |= bitOf(object); }
  /// Result: false if the object wasn't there.
  bool remove(const Object& object) noexcept {
    std::uint64_t& word = used[indexOf(&object) / 64];
    const bool was = (word & bitOf(&object)) != 0;
    word &= ~bitOf(&object);
    return was;
  }
  /// Result: false if it was marked before.
  bool mark(const void* object) noexcept {
    std::uint64_t& word = marked[indexOf(object) / 64];
    const std::uint64_t bit = bitOf(object);
    if ((word & bit) != 0) {
      return false;
    }
    word |= bit;
    return true;
  }

  /// Calls `visit(Object*)` for each object whose bit is set in `bits(word index)`.
  template <class Bits, class Visit>
  void forEach(Bits bits, Visit visit) {
    for (std::size_t word = 0; word < kWords; ++word) {
      for (std::uint64_t rest = bits(word); rest != 0; rest &= rest - 1) {
        const auto bit = static_cast<std::size_t>(std::countr_zero(rest));
        visit(reinterpret_cast<Object*>(place(word * 64 + bit)));
      }
    }
  }
  template <class Visit>
  void forEachUsed(Visit visit) {
    forEach([this](std::size_t word) { return used[word]; }, visit);
  }

  Heap* heap;                  ///< null after close
  ReleaseQueue* queue;         ///< outlives the slab
  void* freePlaces = nullptr;  ///< linked through their first word
  std::size_t nextPlace;       ///< the first that was never used
  std::size_t usedPlaces = 0;
  Slab* nextAvailable = nullptr;  ///< link of the heap's list
  bool isAvailable = false;
  std::array<std::uint64_t, kWords> used{};
  std::array<std::uint64_t, kWords> marked{};

 private:
  static std::uint64_t bitOf(const void* object) noexcept {
    return std::uint64_t{1} << (indexOf(object) % 64);
  }
};

/// Places begin after the head of the slab.
inline Slab::Slab(Heap& owner, ReleaseQueue& releaseQueue)
    : heap(&owner),
      queue(&releaseQueue),
      nextPlace((sizeof(Slab) + kObjectBytes - 1) / kObjectBytes) {}

struct SlabDeleter {
  void operator()(Slab* slab) const noexcept {
    slab->~Slab();
    ::operator delete(slab, std::align_val_t(Slab::kBytes));
  }
};
using SlabPtr = std::unique_ptr<Slab, SlabDeleter>;

/// Errors: std::bad_alloc.
inline SlabPtr makeSlab(Heap& heap, ReleaseQueue& queue) {
  void* memory = ::operator new(Slab::kBytes, std::align_val_t(Slab::kBytes));
  return SlabPtr(new (memory) Slab(heap, queue));
}

}  // namespace kv::host

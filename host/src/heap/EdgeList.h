#pragma once

#include <cstddef>
#include <cstdint>
#include <unordered_map>

namespace kv::host {

class Object;

/// The counted edges from a parent to its children: two inline, then a block, then a counted map.
///
/// Removing n edges one by one, in any order, takes O(n).
class EdgeList {
 public:
  EdgeList() = default;
  ~EdgeList() {
    clear([](Object*) {});
  }
  EdgeList(const EdgeList&) = delete;
  EdgeList& operator=(const EdgeList&) = delete;

  /// Errors: std::bad_alloc; the list is unchanged then.
  void add(Object* child);

  /// Result: false if there is no such edge.
  bool remove(Object* child) noexcept;

  /// Number of edges to `child`.
  std::size_t count(const Object* child) const noexcept;

  /// Calls `visit(child)` once for each edge; with the map, once for each edge too.
  template <class Visit>
  void forEach(Visit visit) const;

  /// Calls `visit(child)` at least once for each child: enough for marking.
  template <class Visit>
  void forEachChild(Visit visit) const;

  /// Empties the list; `visit(child)` is called once for each edge removed. It may free objects,
  /// but must not touch this list.
  template <class Visit>
  void clear(Visit visit) noexcept;

 private:
  using CountedChildren = std::unordered_map<Object*, std::uint32_t>;

  /// Edges beyond the inline ones, in memory of the pool.
  struct Block {
    std::uint32_t size;
    std::uint32_t capacity;
    Object** items() noexcept { return reinterpret_cast<Object**>(this + 1); }
    Object* const* items() const noexcept { return reinterpret_cast<Object* const*>(this + 1); }
  };

  static constexpr std::uint32_t kFirstCapacity = 7;  // a block of 64 bytes
  static constexpr std::uint32_t kLastCapacity = 31;  // one of 256 bytes; beyond, the map
  static constexpr std::uintptr_t kMapTag = 1;

  bool hasMap() const noexcept { return (more_ & kMapTag) != 0; }
  Block* block() const noexcept { return reinterpret_cast<Block*>(more_); }
  CountedChildren* map() const noexcept {
    return reinterpret_cast<CountedChildren*>(more_ & ~kMapTag);
  }

  void addToBlock(Object* child);
  void addToMap(Object* child);
  /// Drops edges to deleted objects, which no one withdraws, before the block grows.
  void dropDeleted() noexcept;
  static Block* newBlock(std::uint32_t capacity);
  static void freeBlock(Block* block) noexcept;
  void growBlock();
  void turnIntoMap();

  Object* inline_[2] = {nullptr, nullptr};
  std::uintptr_t more_ = 0;  // a Block*, or a CountedChildren* with kMapTag
};

template <class Visit>
void EdgeList::forEach(Visit visit) const {
  for (Object* child : inline_) {
    if (child != nullptr) {
      visit(child);
    }
  }
  if (hasMap()) {
    for (const auto& [child, count] : *map()) {
      for (std::uint32_t i = 0; i < count; ++i) {
        visit(child);
      }
    }
  } else if (const Block* edges = block()) {
    for (std::uint32_t i = 0; i < edges->size; ++i) {
      visit(edges->items()[i]);
    }
  }
}

template <class Visit>
void EdgeList::forEachChild(Visit visit) const {
  if (hasMap()) {
    for (Object* child : inline_) {
      if (child != nullptr) {
        visit(child);
      }
    }
    for (const auto& entry : *map()) {
      visit(entry.first);
    }
  } else {
    forEach(visit);
  }
}

template <class Visit>
void EdgeList::clear(Visit visit) noexcept {
  forEach(visit);
  inline_[0] = inline_[1] = nullptr;
  if (hasMap()) {
    delete map();
  } else if (Block* edges = block()) {
    freeBlock(edges);
  }
  more_ = 0;
}

}  // namespace kv::host

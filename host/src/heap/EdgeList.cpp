// Most objects have one or two children, some have thousands. Two edges are in the object itself,
// the next 31 in a block of the pool, and beyond that they are counted in a hash map, so that
// removing edges one by one stays linear. An edge to a deleted child may never be withdrawn; such
// edges are dropped before a block grows, or a long-lived parent would collect them without end.

#include "heap/EdgeList.h"

#include <algorithm>
#include <memory>

#include "heap/Heap.h"
#include "heap/Pool.h"

namespace kv::host {

void EdgeList::add(Object* child) {
  for (Object*& place : inline_) {
    if (place == nullptr) {
      place = child;
      return;
    }
  }
  if (hasMap()) {
    ++(*map())[child];
  } else {
    addToBlock(child);
  }
}

void EdgeList::addToBlock(Object* child) {
  if (block() == nullptr) {
    more_ = reinterpret_cast<std::uintptr_t>(newBlock(kFirstCapacity));
  }
  if (block()->size == block()->capacity) {
    dropDeleted();
  }
  if (block()->size == block()->capacity) {
    if (block()->capacity == kLastCapacity) {
      turnIntoMap();
      ++(*map())[child];
      return;
    }
    growBlock();
  }
  block()->items()[block()->size++] = child;
}

bool EdgeList::remove(Object* child) noexcept {
  // The block is searched before the inline edges: what was added last is most often removed first.
  if (hasMap()) {
    if (const auto found = map()->find(child); found != map()->end()) {
      if (--found->second == 0) {
        map()->erase(found);
      }
      return true;
    }
  } else if (Block* edges = block()) {
    Object** const end = edges->items() + edges->size;
    if (Object** const found = std::find(edges->items(), end, child); found != end) {
      *found = end[-1];
      --edges->size;
      return true;
    }
  }
  Object** const found = std::find(std::begin(inline_), std::end(inline_), child);
  if (found == std::end(inline_)) {
    return false;
  }
  *found = nullptr;
  return true;
}

std::size_t EdgeList::count(const Object* child) const noexcept {
  std::size_t edges = 0;
  forEach([&](const Object* other) { edges += other == child ? 1u : 0u; });
  return edges;
}

void EdgeList::dropDeleted() noexcept {
  Block& edges = *block();
  std::uint32_t kept = 0;
  for (std::uint32_t i = 0; i < edges.size; ++i) {
    Object* child = edges.items()[i];
    if (child->isDeleted()) {
      child->removeHold(Hold::Inside);
    } else {
      edges.items()[kept++] = child;
    }
  }
  edges.size = kept;
}

EdgeList::Block* EdgeList::newBlock(std::uint32_t capacity) {
  void* memory = Pool::allocate(sizeof(Block) + capacity * sizeof(Object*));
  return new (memory) Block{0, capacity};
}

void EdgeList::freeBlock(Block* block) noexcept {
  Pool::free(block, sizeof(Block) + block->capacity * sizeof(Object*));
}

void EdgeList::growBlock() {
  Block* old = block();
  Block* larger = newBlock(old->capacity * 2 + 1);
  std::copy_n(old->items(), old->size, larger->items());
  larger->size = old->size;
  more_ = reinterpret_cast<std::uintptr_t>(larger);
  freeBlock(old);
}

void EdgeList::turnIntoMap() {
  Block* old = block();
  auto counted = std::make_unique<CountedChildren>();
  for (std::uint32_t i = 0; i < old->size; ++i) {
    ++(*counted)[old->items()[i]];
  }
  more_ = reinterpret_cast<std::uintptr_t>(counted.release()) | kMapTag;
  freeBlock(old);
}

}  // namespace kv::host

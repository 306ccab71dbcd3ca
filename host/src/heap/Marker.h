#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "heap/Array.h"
#include "heap/Heap.h"

namespace kv::host {

/// Marks what roots reach. Objects are marked in their slab's bitmap, payloads by the number of the
/// collection. Allocates nothing: objects wait on the heap's stack, payloads in a list through
/// themselves.
class Marker {
 public:
  explicit Marker(Heap& heap) noexcept : stack_(heap.markStack_), epoch_(heap.epoch_) {}

  void markFrom(Heap& heap) noexcept;

  std::uint64_t visited() const noexcept { return visited_; }

 private:
  void markRoots(Heap& heap) noexcept;
  void reach(Object* object) noexcept;
  void reach(const kxArray* array) noexcept;
  void reach(ReferencePayload& payload) noexcept;
  void follow(const Object& object) noexcept;
  void follow(const ReferencePayload& payload) noexcept;

  std::vector<Object*>& stack_;
  Payload* payloads_ = nullptr;
  std::uint32_t epoch_;
  std::uint64_t visited_ = 0;
};

}  // namespace kv::host

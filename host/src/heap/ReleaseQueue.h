#pragma once

#include <atomic>
#include <cstddef>
#include <memory>
#include <mutex>
#include <vector>

#include "heap/Slab.h"
#include "kx/array.h"

namespace kv::host {

class Heap;
class Object;
struct ReferencePayload;

/// Where arrays that refer to a session's objects go when they are dropped on another thread, or
/// while another session is current; and what is left of a session's heap after it was closed.
///
/// Owner: counted: the heap, each payload whose home it is, and, after close, each object whose
/// storage is still referenced. The last one frees it.
/// Threads: `drop` and `storageGone` any; everything else where `isHere`.
class ReleaseQueue {
 public:
  explicit ReleaseQueue(Heap& heap) : heap_(&heap) {}
  ReleaseQueue(const ReleaseQueue&) = delete;
  ReleaseQueue& operator=(const ReleaseQueue&) = delete;

  /// True if this thread may touch what belongs to the session.
  bool isHere() const noexcept;

  /// Takes an array that was dropped where its session isn't current: it waits for the next safe
  /// point. After close it is destroyed at once.
  void drop(kxArray* array) noexcept;

  /// A reference to the storage of an object went away after close.
  void storageGone(Object& object) noexcept;

  bool hasDropped() const noexcept { return waits_.load(std::memory_order_acquire); }
  /// What waits, linked by `next`.
  kxArray* takeDropped() noexcept;

  // Payloads of the session.

  /// Enters a payload, whose home is this queue from now on.
  void enlist(ReferencePayload& payload) noexcept;
  void forget(ReferencePayload& payload) noexcept;
  void addOutside(ReferencePayload& payload) noexcept;
  void removeOutside(ReferencePayload& payload) noexcept;

  /// Payloads with outside headers: roots.
  ReferencePayload* outsidePayloads() const noexcept { return outside_; }
  ReferencePayload* insidePayloads() const noexcept { return inside_; }

  // End.

  /// The heap is closed; `slabs` hold `remaining` objects whose storage is still referenced.
  /// Destroys what was dropped on other threads while the heap closed.
  void inherit(std::vector<SlabPtr> slabs, std::size_t remaining) noexcept;
  /// Releases holds on the queue; the last one frees it.
  void release(std::size_t holds = 1) noexcept;

 private:
  class Posthumous;

  /// Destroys an array after close.
  void destroy(kxArray* array) noexcept;
  ReferencePayload*& listOf(const ReferencePayload& payload) noexcept;
  void link(ReferencePayload& payload) noexcept;
  void unlink(ReferencePayload& payload) noexcept;

  std::recursive_mutex mutex_;
  Heap* heap_;
  bool closed_ = false;
  kxArray* dropped_ = nullptr;
  std::atomic<bool> waits_{false};
  std::atomic<std::size_t> holds_{1};
  ReferencePayload* outside_ = nullptr;
  ReferencePayload* inside_ = nullptr;
  std::vector<SlabPtr> slabs_;
};

}  // namespace kv::host

#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "heap/Object.h"
#include "heap/ObjectClass.h"
#include "heap/ReleaseQueue.h"
#include "heap/Slab.h"
#include "kx/array.h"

namespace kv::host {

/// The objects of one session, and how long each lives.
///
///  1. Roots are: objects with a strong reference, objects under construction, and the contents
///     of a reference payload (object array, cell, structure, function handle) that has an outside
///     header. A header is outside unless it was adopted into a property, or is in a slot or in
///     another payload.
///  2. A reachable object reaches the children of its edges, its slots and its adopted arrays; a
///     reachable payload reaches its elements.
///  3. Accounted and weak references keep the storage of an object readable and nothing else.
///  4. A deleted object reaches nothing. Its edges are gone at once; its native part, slots and C++
///     value are destroyed at once too, or when the last running member of that object returns.
///  5. An object without a strong reference that no edge, slot or payload refers to is deleted at
///     once, through a worklist. What only a cycle holds is found by tracing at safe points.
///  6. All garbage of a collection is marked deleted before the first destructor runs.
///  7. The collector allocates nothing, runs no user code, never recurses and uses no property
///     enumeration. Callables are released from a queue when it is done.
///  8. Storage is freed when an object is deleted, its contents are gone and no reference of any
///     kind is left. After `close`, remaining storage belongs to the release queue, which outlives
///     the heap until the last reference is dropped.
///
/// Threads: one at a time, while it is that thread's current heap. Arrays with references that
/// are dropped elsewhere wait in the release queue for the next safe point; a `COSInterfacePtr`
/// dropped while another heap is current leaves its object to the next collection.
class Heap {
 public:
  struct Options {
    bool stress = false;  ///< collect and verify at every creation of an object
  };
  struct Counters {
    std::uint64_t created = 0;
    std::uint64_t collections = 0;
    std::uint64_t visited = 0;  ///< live objects seen by collections
    std::uint64_t freedByCollector = 0;
    std::uint64_t collectorNanoseconds = 0;
    std::uint64_t payloadBytes = 0;  ///< charged until the last collection, or close
  };

  explicit Heap(Options options);
  ~Heap();
  Heap(const Heap&) = delete;
  Heap& operator=(const Heap&) = delete;

  /// The heap of this thread's current session, or null.
  static Heap* current() noexcept { return current_; }
  /// Result: the heap that was current before.
  static Heap* setCurrent(Heap* heap) noexcept;
  /// The heap of an object, or null if its session is closed.
  static Heap* of(const kcos::COSInterface& object) noexcept;

  // Construction.

  /// A new object under construction, with null slots. A safe point.
  /// Errors: std::bad_alloc; nothing is left behind then.
  Object* allocate(ObjectClass& objectClass);
  /// From here on its references keep the object alive.
  void finishConstruction(Object& object) noexcept;
  /// Notes whether the constructor of the native part runs on an object that is made already: such
  /// a part must not be called.
  void setPartUnfinished(Object& object, bool isUnfinished) noexcept {
    object.flags_ = isUnfinished ? object.flags_ | Object::kPartUnfinished
                                 : object.flags_ & ~Object::kPartUnfinished;
  }
  /// Deletes a half-made object and what it holds already.
  void abandonConstruction(Object& object) noexcept;

  // Contents.

  /// Lives: until the slot is set again or the object is deleted. Null until set.
  const kxArray* slot(const Object& object, std::size_t index) const noexcept;
  /// Takes ownership of the value (of a shared copy of it, if it has more than one owner).
  void setSlot(Object& object, std::size_t index, matrix::ArrayPtr value);

  NativeValue* nativeValue(const Object& object) const noexcept;
  void setNativeValue(Object& object, std::unique_ptr<NativeValue> value);

  // Running and deleting.

  /// Marks that a member of the object runs.
  void enterMember(Object& object) noexcept { object.flags_ += Object::kMemberUnit; }
  void leaveMember(Object& object) noexcept;

  /// Visible at once; see invariant 4. An object that is deleted already stays as it is.
  void deleteObject(Object& object) noexcept;

  // Edges: see kxAddParentRoot and its family.

  void addEdge(Object& parent, Object& child);
  void removeEdge(Object& parent, Object& child) noexcept;
  static bool hasEdge(const Object& parent, const Object& child) noexcept {
    return parent.edges_.count(&child) != 0;
  }
  /// Puts an inside array into the parent's list of adopted arrays, if it may refer to objects.
  /// Errors: std::bad_alloc.
  void adopt(Object& parent, kxArray& array);
  /// Takes an array out of its parent's list.
  static void disown(kxArray& array) noexcept;

  // Collection.

  /// Drops what waits in the release queue, unless something is being destroyed on this thread.
  void dropWaiting() noexcept;
  /// The same at a safe point; collects if enough was created since the last time.
  void safePoint();
  /// Result: the number of objects freed.
  std::size_t collect() noexcept;
  /// Deletes every object. The classes must still be there. The heap makes no more objects.
  void close() noexcept;

  /// Every broken invariant, in words; empty when all hold.
  std::vector<std::string> verify() const;

  std::size_t liveObjects() const noexcept { return live_; }
  /// Objects of exactly that class. Cost: O(slabs).
  std::size_t liveObjects(const ObjectClass& objectClass) const noexcept;

  bool stress() const noexcept { return options_.stress; }
  void setStress(bool stress) noexcept { options_.stress = stress; }
  const Counters& counters() const noexcept { return counters_; }

  // For the rest of this folder and for payloads.

  ReleaseQueue* queue() const noexcept { return queue_; }
  /// Destroys the next object of the worklist. Result: false if there was none.
  bool destroyNext() noexcept;
  /// Counts bytes of payloads towards the next collection.
  void chargeBytes(std::size_t bytes) noexcept { bytesSinceCollection_ += bytes; }
  /// Called when something stopped holding the object: deletes it, or frees its storage, if that
  /// was the last.
  static void holdGone(Object& object) noexcept;

 private:
  friend class HeapVerifier;
  friend class Marker;
  friend class ReleaseQueue;

  // Storage
  void* takePlace();
  void addSlab();
  void makeAvailable(Slab& slab) noexcept;
  void releaseEmptySlabs() noexcept;
  void freeIfUnreferenced(Object& object) noexcept;

  // Deletion
  void markDeleted(Object& object) noexcept;
  void enqueue(Object& object) noexcept;
  void prefetchNext() const noexcept;
  void destroyContents(Object& object) noexcept;
  ObjectExtension& extensionOf(Object& object);

  // Collection
  bool isDue() const noexcept;
  void sweep() noexcept;
  void stopIfBroken() const noexcept;

  static constinit thread_local Heap* current_;

  Options options_;
  Counters counters_;
  ReleaseQueue* queue_;  ///< null after close
  std::vector<SlabPtr> slabs_;
  Slab* available_ =
      nullptr;  ///< slabs that may have free places, the one freed into last is first
  std::vector<Object*> worklist_;   ///< has capacity for every object: filling it can't fail
  std::vector<Object*> markStack_;  ///< likewise
  std::size_t live_ = 0;
  std::uint32_t epoch_ = 0;  ///< number of the last collection, as payloads are marked with it
  std::uint64_t createdSinceCollection_ = 0;
  std::uint64_t bytesSinceCollection_ = 0;
  std::size_t liveAfterCollection_ = 0;
  std::uint64_t bytesAfterCollection_ = 0;
};

/// Marks that a member of an object runs.
class MemberScope {
 public:
  MemberScope(Heap& heap, Object& object) noexcept : heap_(heap), object_(object) {
    heap_.enterMember(object_);
  }
  ~MemberScope() { heap_.leaveMember(object_); }
  MemberScope(const MemberScope&) = delete;
  MemberScope& operator=(const MemberScope&) = delete;

 private:
  Heap& heap_;
  Object& object_;
};

}  // namespace kv::host

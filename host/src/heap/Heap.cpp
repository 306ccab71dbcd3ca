// How objects are created, held and deleted. What can be decided by counts is decided at once: an
// object without a strong reference, edge, slot or element that refers to it is put in a worklist
// and destroyed by the teardown of its thread. The collector is left with cycles, and a chain of
// any length is freed without recursion. Everything that destruction needs is reserved when an
// object is created (the worklist and the mark stack have a place for each), so that deleting can't
// fail for lack of memory.

#include "heap/Heap.h"

#include <algorithm>
#include <stdexcept>
#include <utility>

#include "heap/Array.h"
#include "heap/Teardown.h"

namespace kv::host {

constinit thread_local Heap* Heap::current_ = nullptr;

Heap::Heap(Options options) : options_(options), queue_(new ReleaseQueue(*this)) {}

Heap::~Heap() { close(); }

Heap* Heap::setCurrent(Heap* heap) noexcept { return std::exchange(current_, heap); }

Heap* Heap::of(const kcos::COSInterface& object) noexcept {
  return Slab::of(static_cast<const void*>(&object)).heap;
}

void Heap::addSlab() {
  const std::size_t places = (slabs_.size() + 1) * Slab::kPlaces;
  for (std::vector<Object*>* list : {&worklist_, &markStack_}) {
    if (list->capacity() < places) {
      list->reserve(2 * places);
    }
  }
  slabs_.push_back(makeSlab(*this, *queue_));
  makeAvailable(*slabs_.back());
}

void Heap::makeAvailable(Slab& slab) noexcept {
  if (!slab.isAvailable) {
    slab.isAvailable = true;
    slab.nextAvailable = std::exchange(available_, &slab);
  }
}

void* Heap::takePlace() {
  for (;;) {
    if (available_ == nullptr) {
      addSlab();
    }
    if (void* place = available_->take()) {
      return place;
    }
    available_->isAvailable = false;  // full; it comes back when one of its objects is freed
    available_ = available_->nextAvailable;
  }
}

void Heap::releaseEmptySlabs() noexcept {
  bool keepsOne = false;
  std::erase_if(slabs_, [&keepsOne](const SlabPtr& slab) {
    return slab->usedPlaces == 0 && std::exchange(keepsOne, true);
  });
  available_ = nullptr;
  for (const SlabPtr& slab : slabs_) {
    slab->isAvailable = false;
    if (slab->usedPlaces < Slab::kPlaces / 2) {
      makeAvailable(*slab);
    }
  }
}

void Heap::freeIfUnreferenced(Object& object) noexcept {
  constexpr std::uint32_t kDone = Object::kContentsGone;
  if (object.isReferenced() || (object.flags_ & (kDone | Object::kQueued)) != kDone ||
      object.hasRunningMember()) {
    return;
  }
  Slab& slab = Slab::of(object);
  slab.remove(object);
  object.~Object();
  slab.give(&object);
  makeAvailable(slab);
  Pool::count(Counted::Objects, -1);
}

Object* Heap::allocate(ObjectClass& objectClass) {
  if (queue_ == nullptr) {
    throw std::logic_error("an object was asked of a heap that is closed");
  }
  safePoint();
  std::unique_ptr<ObjectExtension> extension;
  if (objectClass.slotCount() != 0) {
    extension = std::make_unique<ObjectExtension>(objectClass.slotCount());
  }
  auto* object = new (takePlace()) Object(objectClass);
  object->flags_ = Object::kUnderConstruction;
  object->extension_ = std::move(extension);
  Slab::of(*object).add(object);
  Pool::count(Counted::Objects, 1);
  ++live_;
  ++createdSinceCollection_;
  ++counters_.created;
  return object;
}

void Heap::finishConstruction(Object& object) noexcept {
  object.flags_ &= ~Object::kUnderConstruction;
  holdGone(object);
}

void Heap::abandonConstruction(Object& object) noexcept {
  object.flags_ &= ~Object::kUnderConstruction;
  deleteObject(object);
}

ObjectExtension& Heap::extensionOf(Object& object) {
  if (object.extension_ == nullptr) {
    object.extension_ = std::make_unique<ObjectExtension>(object.objectClass().slotCount());
  }
  return *object.extension_;
}

const kxArray* Heap::slot(const Object& object, std::size_t index) const noexcept {
  return object.extension_ != nullptr ? object.extension_->slots[index] : nullptr;
}

void Heap::setSlot(Object& object, std::size_t index, matrix::ArrayPtr value) {
  if (value != nullptr && kxGetReferenceCount(value.get()) != 0) {
    value = matrix::sharedCopy(value.get());
  }
  if ((object.flags_ & Object::kContentsGone) != 0) {
    return;
  }
  if (value != nullptr) {
    value->moveInside();
  }
  kxArray* old = std::exchange(object.extension_->slots[index], value.release());
  matrix::destroyArray(old);
}

NativeValue* Heap::nativeValue(const Object& object) const noexcept {
  return object.extension_ != nullptr ? object.extension_->value.get() : nullptr;
}

void Heap::setNativeValue(Object& object, std::unique_ptr<NativeValue> value) {
  if ((object.flags_ & Object::kContentsGone) == 0) {
    std::swap(extensionOf(object).value, value);
  }
}

void Heap::addEdge(Object& parent, Object& child) {
  if (parent.isDeleted()) {
    return;
  }
  parent.edges_.add(&child);
  child.addHold(Hold::Inside);
}

void Heap::removeEdge(Object& parent, Object& child) noexcept {
  if (!parent.isDeleted() && parent.edges_.remove(&child)) {
    child.removeHold(Hold::Inside);
  }
}

void Heap::adopt(Object& parent, kxArray& array) {
  disown(array);
  array.moveInside();
  if ((parent.flags_ & Object::kContentsGone) != 0 || !array.mayReferToObjects()) {
    return;
  }
  kxArray*& first = extensionOf(parent).adopted;
  array.parent = &parent;
  array.previous = nullptr;
  array.next = first;
  if (first != nullptr) {
    first->previous = &array;
  }
  first = &array;
}

void Heap::disown(kxArray& array) noexcept {
  Object* parent = std::exchange(array.parent, nullptr);
  if (parent == nullptr) {
    return;
  }
  if (array.next != nullptr) {
    array.next->previous = array.previous;
  }
  (array.previous != nullptr ? array.previous->next : parent->extension_->adopted) = array.next;
  array.previous = array.next = nullptr;
  if (parent->isDeleted()) {
    holdGone(*parent);  // its storage was kept for the array
  }
}

void Object::lastHoldGone() noexcept { Heap::holdGone(*this); }

void Heap::holdGone(Object& object) noexcept {
  if (object.isHeld()) {
    return;
  }
  Heap* heap = of(object);
  if (heap == nullptr) {
    Slab::of(object).queue->storageGone(object);
  } else if (heap == current_ && !object.isDeleted()) {
    heap->enqueue(object);
    Teardown::run();
  } else if (heap == current_) {
    heap->freeIfUnreferenced(object);
  }  // else the session's next collection finds it
}

void Heap::markDeleted(Object& object) noexcept {
  object.flags_ |= Object::kDeletedFlag;
  --live_;
}

void Heap::enqueue(Object& object) noexcept {
  if ((object.flags_ & Object::kQueued) == 0) {
    object.flags_ |= Object::kQueued;
    worklist_.push_back(&object);
  }
}

/// What a collection found is cold memory: its objects, and what they hold, are asked for ahead.
void Heap::prefetchNext() const noexcept {
  constexpr std::size_t kObject = 8;
  constexpr std::size_t kContents = 4;
  if (const std::size_t size = worklist_.size(); size >= kObject) {
    __builtin_prefetch(worklist_[size - kObject], 1);
    const Object& soon = *worklist_[size - kContents];
    __builtin_prefetch(soon.instanceData_, 1);
    __builtin_prefetch(soon.extension_.get(), 1);
  }
}

bool Heap::destroyNext() noexcept {
  if (worklist_.empty()) {
    return false;
  }
  Object& object = *worklist_.back();
  worklist_.pop_back();
  prefetchNext();
  if (object.isDeleted() || !object.isHeld()) {
    if (!object.isDeleted()) {
      markDeleted(object);
    }
    object.edges_.clear([](Object* child) { child->removeHold(Hold::Inside); });
    if (!object.hasRunningMember()) {
      destroyContents(object);
    }
  }
  object.flags_ &= ~Object::kQueued;
  if (object.isDeleted()) {
    freeIfUnreferenced(object);
  }
  return true;
}

void Heap::destroyContents(Object& object) noexcept {
  if ((object.flags_ & Object::kContentsGone) != 0) {
    return;
  }
  if (void* data = std::exchange(object.instanceData_, nullptr)) {
    object.objectClass().destroyInstanceData(data);
  }
  object.flags_ |= Object::kContentsGone;
  if (ObjectExtension* extension = object.extension_.get()) {
    extension->value.reset();
    for (kxArray* value : std::exchange(extension->slots, {})) {
      matrix::destroyArray(value);
    }
  }
}

void Heap::leaveMember(Object& object) noexcept {
  object.flags_ -= Object::kMemberUnit;
  if (object.isDeleted() && !object.hasRunningMember()) {
    enqueue(object);
    Teardown::run();
  }
}

void Heap::deleteObject(Object& object) noexcept {
  if (!object.isDeleted()) {
    markDeleted(object);
    enqueue(object);
    Teardown::run();
  }
}

void Heap::close() noexcept {
  if (queue_ == nullptr) {
    return;
  }
  Heap* previous = setCurrent(this);
  dropWaiting();
  {
    const Teardown::Pause pause;
    for (const SlabPtr& slab : slabs_) {
      slab->forEachUsed([this](Object* object) {
        object->flags_ &= ~Object::kUnderConstruction;
        if (!object->isDeleted()) {
          markDeleted(*object);
          enqueue(*object);
        }
      });
    }
  }
  std::erase_if(slabs_, [](const SlabPtr& slab) { return slab->usedPlaces == 0; });
  std::size_t remaining = 0;
  for (const SlabPtr& slab : slabs_) {
    slab->heap = nullptr;
    slab->forEachUsed([&remaining](Object* object) {
      object->class_ = nullptr;
      ++remaining;
    });
  }
  setCurrent(previous == this ? nullptr : previous);
  ReleaseQueue* queue = std::exchange(queue_, nullptr);
  queue->inherit(std::move(slabs_), remaining);
  queue->release();
  worklist_ = {};
  markStack_ = {};
  counters_.payloadBytes += bytesSinceCollection_;
}

std::size_t Heap::liveObjects(const ObjectClass& objectClass) const noexcept {
  std::size_t count = 0;
  for (const SlabPtr& slab : slabs_) {
    slab->forEachUsed([&](const Object* object) {
      count += !object->isDeleted() && object->class_ == &objectClass ? 1u : 0u;
    });
  }
  return count;
}

}  // namespace kv::host

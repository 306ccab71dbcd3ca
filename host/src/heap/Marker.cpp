// The mark phase. Mark bits are in bitmaps beside the objects and not in their headers: marking
// then touches one cache line for hundreds of objects, and the sweep finds garbage a word at a
// time. Objects that are still to be followed wait on a stack of the heap with room for all of
// them, payloads in a list through themselves, so that marking allocates nothing and recurses
// nowhere.

#include "heap/Marker.h"

#include <utility>

namespace kv::host {

void Marker::markFrom(Heap& heap) noexcept {
  markRoots(heap);
  for (;;) {
    if (!stack_.empty()) {
      const Object* object = stack_.back();
      stack_.pop_back();
      follow(*object);
    } else if (payloads_ != nullptr) {
      const auto* payload = static_cast<ReferencePayload*>(payloads_);
      payloads_ = payloads_->next;
      follow(*payload);
    } else {
      return;
    }
  }
}

void Marker::markRoots(Heap& heap) noexcept {
  for (const SlabPtr& slab : heap.slabs_) {
    slab->marked.fill(0);
  }
  for (const SlabPtr& slab : heap.slabs_) {
    slab->forEachUsed([this](Object* object) {
      if (object->strongCount_ != 0 || object->isUnderConstruction()) {
        reach(object);
      }
    });
  }
  for (ReferencePayload* payload = heap.queue_->outsidePayloads(); payload != nullptr;
       payload = payload->nextListed) {
    reach(*payload);
  }
}

void Marker::reach(Object* object) noexcept {
  if (Slab::of(*object).mark(object)) {
    stack_.push_back(object);
  }
}

void Marker::reach(const kxArray* array) noexcept {
  if (array == nullptr) {
    return;
  }
  if (array->form == kxArray::Form::Object) {
    reach(array->object);
  } else if (ReferencePayload* payload = array->referencePayload();
             payload != nullptr && payload->home != nullptr) {
    reach(*payload);
  }
}

void Marker::reach(ReferencePayload& payload) noexcept {
  if (payload.markEpoch != epoch_) {
    payload.markEpoch = epoch_;
    payload.next = std::exchange(payloads_, &payload);
  }
}

void Marker::follow(const Object& object) noexcept {
  if (object.isDeleted()) {
    return;
  }
  ++visited_;
  object.edges_.forEachChild([this](Object* child) { reach(child); });
  if (const ObjectExtension* extension = object.extension_.get()) {
    for (const kxArray* value : extension->slots) {
      reach(value);
    }
    for (const kxArray* array = extension->adopted; array != nullptr; array = array->next) {
      reach(array);
    }
  }
}

void Marker::follow(const ReferencePayload& payload) noexcept {
  switch (payload.kind) {
    case PayloadKind::Cell:
    case PayloadKind::Structure:
      for (const kxArray* element : static_cast<const ContainerPayload&>(payload).elements) {
        reach(element);
      }
      break;
    case PayloadKind::Objects:
      for (Object* object : static_cast<const ObjectsPayload&>(payload).objects) {
        if (object != nullptr) {
          reach(object);
        }
      }
      break;
    case PayloadKind::Function:
    case PayloadKind::Data:
    case PayloadKind::Strings:
      break;
  }
}

}  // namespace kv::host

// Headers of values. Most values are single numbers or single objects, so these are in the header
// itself, which is one block of the pool. The rest of this file keeps the counts that decide what
// is a root: each change of a header between inside and outside, and of its owners, is accounted
// for in the object or payload that it refers to.

#include "heap/Array.h"

#include "heap/Heap.h"
#include "heap/ReleaseQueue.h"
#include "heap/Slab.h"
#include "heap/Teardown.h"

using kv::host::Heap;
using kv::host::Hold;
using kv::host::ReferencePayload;
using kv::host::ReleaseQueue;
using kv::host::Slab;
using kv::host::Teardown;

kxArray::~kxArray() {
  kv::host::Pool::count(kv::host::Counted::Arrays, -1);
  if (parent != nullptr) {
    Heap::disown(*this);
  }
  if (form == Form::Object) {
    if (isInside) {
      object->removeHold(Hold::Inside);
    }
    if (isOutside()) {
      object->removeHold(Hold::Outside);
    }
  } else if (form == Form::Payload) {
    ReferencePayload* references = referencePayload();
    if (references != nullptr && references->home != nullptr && isOutside()) {
      references->home->removeOutside(*references);
    }
    if (payload->arrays.fetch_sub(1, std::memory_order_acq_rel) == 1) {
      Teardown::enqueue(payload);
    }
  }
}

kxArray* kxArray::share() const {
  auto* copy = new kxArray(classId(), rows(), columns());
  switch (form) {
    case Form::Object:
      copy->putObject(object);
      break;
    case Form::Payload:
      copy->putPayload(payload);
      break;
    case Form::Bare:
    case Form::Scalar:
      copy->form = form;
      copy->bits = bits;
      break;
  }
  return copy;
}

void kxArray::putPayload(kv::host::Payload* shared) noexcept {
  form = Form::Payload;
  payload = shared;
  shared->arrays.fetch_add(1, std::memory_order_relaxed);
  ReferencePayload* references = referencePayload();
  if (references != nullptr && references->home != nullptr) {
    references->home->addOutside(*references);
  }
}

void kxArray::putObject(kv::host::Object* scalar) noexcept {
  form = Form::Object;
  object = scalar;
  scalar->addHold(Hold::Outside);
}

void kxArray::setScalarObject(kv::host::Object* scalar) noexcept {
  kv::host::Object* old = form == Form::Object ? object : nullptr;
  if (scalar != nullptr) {
    putObject(scalar);
  } else if (old != nullptr) {
    form = Form::Bare;
    bareClass = old->getClassObject()->getClassId().id();
  }
  if (old != nullptr) {
    old->removeHold(Hold::Outside);
  }
}

void kxArray::addOutsideHold() noexcept {
  if (form == Form::Object) {
    object->addHold(Hold::Outside);
  } else if (ReferencePayload* references = referencePayload();
             references != nullptr && references->home != nullptr) {
    references->home->addOutside(*references);
  }
}

void kxArray::removeOutsideHold() noexcept {
  if (form == Form::Object) {
    object->removeHold(Hold::Outside);
  } else if (ReferencePayload* references = referencePayload();
             references != nullptr && references->home != nullptr) {
    references->home->removeOutside(*references);
  }
}

void kxArray::moveInside() noexcept {
  if (isInside) {
    return;
  }
  isInside = true;
  if (form == Form::Object) {
    object->addHold(Hold::Inside);
  }
  if (!isOutside()) {
    removeOutsideHold();
  }
}

void kxArray::moveOutside() noexcept {
  if (!isInside) {
    return;
  }
  if (!isOutside()) {
    addOutsideHold();
  }
  isInside = false;
  if (form == Form::Object) {
    object->removeHold(Hold::Inside);
  }
}

void kxArray::addOwner() noexcept {
  if (moreOwners.fetch_add(1, std::memory_order_relaxed) == 0 && isInside) {
    addOutsideHold();
  }
}

bool kxArray::removeOwner() noexcept {
  std::uint32_t others = moreOwners.load(std::memory_order_acquire);
  while (others != 0) {
    if (moreOwners.compare_exchange_weak(others, others - 1, std::memory_order_acq_rel)) {
      if (others == 1 && isInside) {
        removeOutsideHold();
      }
      return true;
    }
  }
  return false;
}

ReleaseQueue* kxArray::home() const noexcept {
  if (parent != nullptr) {
    return Slab::of(*parent).queue;
  }
  if (form == Form::Object) {
    return Slab::of(*object).queue;
  }
  const ReferencePayload* references = referencePayload();
  return references != nullptr ? references->home : nullptr;
}

void kxArray::settleIn(ReleaseQueue* queue) noexcept {
  ReferencePayload* references = referencePayload();
  if (queue != nullptr && references != nullptr && references->home == nullptr) {
    references->outside = isOutside() ? references->arrays.load(std::memory_order_relaxed) : 0;
    queue->enlist(*references);
  }
}

namespace matrix {

void destroyArray(kxArray* array) noexcept {
  if (array == nullptr) {
    return;
  }
  if (ReleaseQueue* home = array->home(); home != nullptr && !home->isHere()) {
    home->drop(array);
  } else {
    delete array;
  }
}

namespace detail {

void kxDestroy_deleter::operator()(kxArray* array) const noexcept {
  if (array != nullptr && !array->removeOwner()) {
    destroyArray(array);
  }
}

kxArray* do_shared_copy(const kxArray* array) {
  return array != nullptr ? array->share() : nullptr;
}

}  // namespace detail
}  // namespace matrix

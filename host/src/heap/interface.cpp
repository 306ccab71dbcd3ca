#include "kcos/interface.h"

#include <stdexcept>

#include "heap/Array.h"
#include "heap/Heap.h"

using kv::host::Heap;
using kv::host::Object;

namespace kcos {

void* COSInterface::getInstanceData(COSInternedBase classKey) const noexcept {
  return instanceData_ != nullptr && Object::of(this)->objectClass().answersTo(classKey)
             ? instanceData_
             : nullptr;
}

void COSInterface::setInstanceData(COSInternedBase classKey, void* data) {
  if (!Object::of(this)->objectClass().answersTo(classKey)) {
    throw std::logic_error("a native part under the key " + std::string(classKey.text()) +
                           ", which isn't in the chain of " + std::string(class_->getName()));
  }
  instanceData_ = data;
}

void COSInterface::lastReferenceGone() noexcept { Heap::holdGone(*Object::of(this)); }

RootRecordPtr omGetRootRecord(const COSInterface* object) noexcept {
  return RootRecordPtr(const_cast<COSInterface*>(object));
}

void kcosConvertArrayToInternalInPlace(kxArray* array, bool /*flag*/) { array->moveInside(); }

void* utAllocatePart(std::size_t bytes) { return kv::host::Pool::allocate(bytes); }

void utFreePart(void* memory, std::size_t bytes) noexcept { kv::host::Pool::free(memory, bytes); }

void property_array_deleter::operator()(kxArray* array) const noexcept {
  if (array == nullptr) {
    return;
  }
  if (kxGetReferenceCount(array) != 0) {
    Heap::disown(*array);
    array->moveOutside();
  }
  matrix::detail::kxDestroy_deleter()(array);
}

}  // namespace kcos

bool kxHasRootRecord(const kxArray* array) noexcept {
  if (array == nullptr) {
    return false;
  }
  switch (array->classId()) {
    case kxCELL_CLASS:
    case kxSTRUCT_CLASS:
    case kxFUNCTION_CLASS:
    case kxOBJECT_CLASS:
      return true;
    default:
      return false;
  }
}

kcos::RootRecordPtr kxGetRootRecordForArray(kxArray* array) noexcept {
  return kcos::RootRecordPtr(array);
}

void kxAddParentRoot(kcos::RootRecordPtr child, kcos::RootRecordPtr parent) {
  if (child.array() != nullptr) {
    kxSetParentRoot(child, parent);
    return;
  }
  if (child.object() == nullptr || parent.object() == nullptr) {
    throw std::logic_error("an edge of the lifetime graph leads from an object to an object");
  }
  if (Heap* heap = Heap::of(*parent.object())) {
    heap->addEdge(*Object::of(parent.object()), *Object::of(child.object()));
  }
}

void kxRemoveParentRoot(kcos::RootRecordPtr child, kcos::RootRecordPtr parent) noexcept {
  if (child.array() != nullptr) {
    Heap::disown(*child.array());
  } else if (child.object() != nullptr && parent.object() != nullptr) {
    if (Heap* heap = Heap::of(*parent.object())) {
      heap->removeEdge(*Object::of(parent.object()), *Object::of(child.object()));
    }
  }
}

void kxSetParentRoot(kcos::RootRecordPtr arrayRecord, kcos::RootRecordPtr parent) {
  if (arrayRecord.array() == nullptr || parent.object() == nullptr) {
    throw std::logic_error("an array is adopted by an object");
  }
  if (Heap* heap = Heap::of(*parent.object())) {
    heap->adopt(*Object::of(parent.object()), *arrayRecord.array());
  }
}

#include "heap/Array.h"
#include "heap/Heap.h"
#include "kv/host/elementTypes.h"
#include "kv/host/errors.h"
#include "kx/array.h"
#include "value/classNames.h"

using kv::host::ObjectClass;

namespace {

kcos::COSInternedBase objectClassName(const kxArray& array) {
  switch (array.form) {
    case kxArray::Form::Bare:
      return kcos::COSInternedBase(array.bareClass);
    case kxArray::Form::Payload:
      return static_cast<const kv::host::ObjectsPayload*>(array.payload)->className;
    case kxArray::Form::Object:
    case kxArray::Form::Scalar:
      break;
  }
  const kcos::COSClass* objectClass = array.object->getClassObject();
  return objectClass != nullptr ? objectClass->getClassId() : kcos::COSInternedBase();
}

}  // namespace

kxClassID kxGetClassID(const kxArray* array) noexcept {
  return array != nullptr ? array->classId() : kxUNKNOWN_CLASS;
}

std::string kxGetClassName(const kxArray* array) {
  if (array != nullptr && array->classId() == kxOBJECT_CLASS) {
    return std::string(objectClassName(*array).text());
  }
  return std::string(kv::host::nameOf(kxGetClassID(array)));
}

bool kxIsA(const kxArray* array, kcos::COSInternedBase className) {
  if (array == nullptr) {
    return false;
  }
  if (array->classId() != kxOBJECT_CLASS) {
    return kv::host::nameOf(array->classId()) == className.text();
  }
  const kcos::COSInternedBase own = objectClassName(*array);
  if (own == className) {
    return true;
  }
  const kcos::COSClass* objectClass = array->form == kxArray::Form::Object
                                          ? array->object->getClassObject()
                                          : kcos::COSClass::getClass(own);
  return objectClass != nullptr && static_cast<const ObjectClass*>(objectClass)->isA(className);
}

bool kxIsA(const kxArray* array, kcos::NameRef className) {
  if (array == nullptr || array->classId() != kxOBJECT_CLASS) {
    return array != nullptr && kv::host::nameOf(array->classId()) == className.text();
  }
  return kxIsA(array, kcos::internal::makeInterned(className));
}

bool kxIsNumeric(const kxArray* array) noexcept {
  return kv::host::visitNumberType(kxGetClassID(array), []<class T>() {});
}

bool kxIsScalar(const kxArray* array) noexcept {
  return array != nullptr && array->rows() == 1 && array->columns() == 1;
}

bool kxIsEmpty(const kxArray* array) noexcept { return kxGetNumberOfElements(array) == 0; }

std::size_t kxGetNumberOfElements(const kxArray* array) noexcept {
  return array != nullptr ? array->elementCount() : 0;
}

std::size_t kxGetM(const kxArray* array) noexcept { return array != nullptr ? array->rows() : 0; }

std::size_t kxGetN(const kxArray* array) noexcept {
  return array != nullptr ? array->columns() : 0;
}

std::span<const std::size_t> kxGetDimensions(const kxArray* array) noexcept {
  static constexpr std::size_t kNone[2] = {0, 0};
  if (array == nullptr) {
    return kNone;
  }
  const bool hasMore = array->form == kxArray::Form::Payload && !array->payload->dimensions.empty();
  return hasMore ? std::span<const std::size_t>(array->payload->dimensions) : array->extents;
}

void kxAddReference(kxArray* array) noexcept { array->addOwner(); }

std::size_t kxGetReferenceCount(const kxArray* array) noexcept {
  return array->moreOwners.load(std::memory_order_relaxed);
}

bool kxIsSameValue(const kxArray* a, const kxArray* b) noexcept {
  if (a == nullptr || b == nullptr || a == b) {
    return a == b;
  }
  const bool hasIdentity = a->form == kxArray::Form::Payload || a->form == kxArray::Form::Object;
  return hasIdentity && a->form == b->form && a->rows() == b->rows() &&
         a->columns() == b->columns() && a->bits == b->bits;  // the pointer, of whichever kind
}

kxArray* kxGetPropertyShared(const kxArray* array, std::size_t index, kcos::NameRef name) {
  const kcos::COSInterfacePtr object = kcos::omGetArrayElement(array, index);
  if (object.get() == nullptr || object->isDeleted()) {
    kv::host::raise("KALVEX:class:InvalidHandle");
  }
  kv::host::Object& target = *kv::host::Object::of(object.get());
  return target.objectClass().readProperty(target, kcos::internal::makeInterned(name));
}

void kxSetArrayScope(kxArray* array, kxVariableScope scope) noexcept {
  array->scope = static_cast<std::uint8_t>(scope);
}

namespace matrix::detail {

void error_maxlhs() { kv::host::raise("KALVEX:TooManyOutputs"); }
void error_maxrhs() { kv::host::raise("KALVEX:TooManyInputs"); }
void error_minrhs() { kv::host::raise("KALVEX:NotEnoughInputs"); }

}  // namespace matrix::detail

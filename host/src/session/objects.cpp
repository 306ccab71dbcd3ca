#include "session/objects.h"

#include <string>

#include "heap/Array.h"
#include "kv/host/errors.h"
#include "kv/host/values.h"
#include "session/SessionState.h"

namespace kv::host {

Object* scalarObject(const kxArray* array) noexcept {
  if (array == nullptr || array->classId() != kxOBJECT_CLASS) {
    return nullptr;
  }
  if (array->form == kxArray::Form::Object) {
    return array->object;
  }
  return kxIsScalar(array) ? Object::of(kcos::omGetArrayElement(array, 0).get()) : nullptr;
}

Object& requireObject(const kxArray* array) {
  Object* object = scalarObject(array);
  if (object == nullptr) {
    raiseInvalidType("Input", "scalar object", array);
  }
  if (object->isDeleted()) {
    raise("KALVEX:class:InvalidHandle");
  }
  return *object;
}

const ClassRecord* classOf(const SessionState& session, const kxArray* array) {
  if (array == nullptr || array->classId() != kxOBJECT_CLASS) {
    return nullptr;
  }
  if (array->form == kxArray::Form::Object) {
    return static_cast<const ClassRecord*>(array->object->getClassObject());
  }
  const std::string name = kxGetClassName(array);
  return session.classes.find(kcos::internal::makeInterned(kcos::NameRef::of(name)));
}

matrix::ArrayPtr arrayOf(Object& object) {
  return matrix::from_kalvex(
      kcos::omCreateKCOSScalar(kcos::COSInterfacePtr(&object, kcos::COSReferenceType::Strong)));
}

}  // namespace kv::host

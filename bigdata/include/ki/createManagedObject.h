#pragma once

#include <utility>

#include "kcos/class.h"
#include "ki/KalvexManagedPtr.h"
#include "ki/TypeAwareKalvexManagedConstructInfo.h"

namespace bigdata::ki {

/// Makes an object of the native class `T`, with its host object, from native code. `T` is
/// constructed from a construction context and `arguments`.
///
/// Errors: those of the constructor; no part of the object is left then.
template <class T, class... Arguments>
KalvexManagedPtr<T> createManagedObject(Arguments&&... arguments) {
  kcos::COSClass* objectClass = kcos::COSClass::getClass(classKey<T>());
  kcos::COSInterfacePtr object;
  objectClass->createInstance(object);
  objectClass->beginConstruction(object);
  TypeAwareKalvexManagedConstructInfo<T> info(object);
  T* made = new T(info, std::forward<Arguments>(arguments)...);
  info.release();
  objectClass->endConstruction(object);
  return {made, object};
}

}  // namespace bigdata::ki

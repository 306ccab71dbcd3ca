#pragma once

#include "heap/Object.h"
#include "kx/array.h"
#include "session/ClassRecord.h"

namespace kv::host {

struct SessionState;

/// The object of a scalar object array; null for anything else and for an element that isn't set.
Object* scalarObject(const kxArray* array) noexcept;

/// The object of a scalar object array.
/// Errors: "KALVEX:validateattributes:invalidType"; "KALVEX:class:InvalidHandle" if it is deleted.
Object& requireObject(const kxArray* array);

/// The class of an object array, also of an empty one; null for other arrays, and for an object
/// that outlived its session.
const ClassRecord* classOf(const SessionState& session, const kxArray* array);

inline const ClassRecord& classOf(const Object& object) noexcept {
  return static_cast<const ClassRecord&>(object.objectClass());
}

/// A scalar array of the object.
matrix::ArrayPtr arrayOf(Object& object);

}  // namespace kv::host

#pragma once

#include "heap/Object.h"
#include "kv/host/values.h"
#include "session/ClassRecord.h"

namespace kv::host {

struct SessionState;

/// The value of a property, with the rights of `caller` (null: public code). A property whose
/// target was deleted returns the deleted object.
///
/// Errors: "KALVEX:class:InvalidHandle" if the object is deleted, "KALVEX:class:NoSuchMember",
/// "KALVEX:class:AccessDenied"; what a getter raises.
Value readProperty(SessionState& session, Object& object, kcos::COSInternedBase name,
                   const ClassRecord* caller);

/// Sets a property with the rights of `caller`. One with set access `Immutable` is set only by the
/// constructor of its class, one with `None` by no one. A native one without a setter ignores it.
///
/// Errors: as for reading.
void writeProperty(SessionState& session, Object& object, kcos::COSInternedBase name,
                   const kxArray* value, const ClassRecord* caller);

/// The value at a property's place, whatever its access.
Value readPlace(SessionState& session, Object& object, PropertyPlace place);

/// Sets the value at a property's place, whatever its access.
void writePlace(SessionState& session, Object& object, PropertyPlace place, const kxArray* value);

/// True if the object holds the value of a native property as the array that it was set to, which
/// others may share. False if the setter has made something else of it.
bool sharesArray(Object& object, const PropertyPlace& place);

/// The contents of the slot of a property of a language class; null if the class has no such slot
/// or nothing was stored. Lives: until the slot is set again.
const kxArray* storedValue(const Object& object, kcos::NameRef name);

/// The value of a slot as its readers see it: `[]` where nothing was ever stored.
Value slotValue(SessionState& session, const Object& object, const PropertyPlace& place);

}  // namespace kv::host

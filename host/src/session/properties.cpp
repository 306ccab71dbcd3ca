#include "session/properties.h"

#include "kv/host/errors.h"
#include "session/SessionState.h"
#include "session/access.h"
#include "session/construction.h"
#include "session/edge.h"
#include "session/objects.h"
#include "session/running.h"

namespace kv::host {

namespace {

const PropertyPlace& placeOf(const Object& object, kcos::COSInternedBase name) {
  if (object.isDeleted()) {
    raise("KALVEX:class:InvalidHandle");
  }
  const ClassRecord& record = classOf(object);
  const PropertyPlace* place = record.linked().properties.find(name);
  if (place == nullptr) {
    raiseNoSuchMember(record, name);
  }
  return *place;
}

/// An object under construction may need the part of the property's class made first.
void preparePart(SessionState& session, Object& object, const Property& property) {
  if (object.isUnderConstruction()) {
    constructPart(session, object, *property.owner);
  }
}

Value compute(SessionState& session, Object& object, const Property& property) {
  const Value self = arrayOf(object);
  const kxArray* inputs[] = {self.get()};
  kxArray* output = nullptr;
  const RunningScope running(session, property.owner);
  try {
    property.definition->compute({1, &output, 1, inputs});
  } catch (...) {
    matrix::from_kalvex(output);
    throw;
  }
  return matrix::from_kalvex(output);
}

bool maySet(const Object& object, const Property& property, const ClassRecord* caller) {
  if (property.setAccess == MemberAccess::Immutable) {
    return caller == property.owner && object.isUnderConstruction();
  }
  return mayAccess(property.setAccess, *property.owner, property.name, caller);
}

}  // namespace

// Places are passed as copies: reading and setting may run code that changes classes.

Value readPlace(SessionState& session, Object& object, PropertyPlace place) {
  const Property& property = *place.property;
  preparePart(session, object, property);
  if (property.hasSlot()) {
    return slotValue(session, object, place);
  }
  const MemberScope member(session.heap, object);
  if (property.isComputed()) {
    return compute(session, object, property);
  }
  const RunningScope running(session, nullptr);
  return matrix::from_kalvex(property.native->get(&object));
}

void writePlace(SessionState& session, Object& object, PropertyPlace place, const kxArray* value) {
  const Property& property = *place.property;
  preparePart(session, object, property);
  if (property.hasSlot()) {
    session.heap.setSlot(object, place.slot, matrix::sharedCopy(value));
  } else if (property.native != nullptr) {
    const MemberScope member(session.heap, object);
    const RunningScope running(session, nullptr);
    property.native->set(&object, value);
  }
}

bool sharesArray(Object& object, const PropertyPlace& place) {
  const Property& property = *place.property;
  return property.native != nullptr && property.native->getReferencedArrays(&object).hasMore();
}

Value readProperty(SessionState& session, Object& object, kcos::COSInternedBase name,
                   const ClassRecord* caller) {
  const PropertyPlace& place = placeOf(object, name);
  if (!mayAccess(place.property->getAccess, *place.property->owner, name, caller)) {
    raiseAccessDenied(*place.property->owner, name);
  }
  return readPlace(session, object, place);
}

void writeProperty(SessionState& session, Object& object, kcos::COSInternedBase name,
                   const kxArray* value, const ClassRecord* caller) {
  const PropertyPlace& place = placeOf(object, name);
  if (!maySet(object, *place.property, caller)) {
    raiseAccessDenied(*place.property->owner, name);
  }
  writePlace(session, object, place, value);
}

const kxArray* storedValue(const Object& object, kcos::NameRef name) {
  const LinkedClass& linked = classOf(object).linked();
  const PropertyPlace* place = linked.properties.find(kcos::internal::makeInterned(name));
  return place != nullptr && place->property->hasSlot()
             ? Heap::of(object)->slot(object, place->slot)
             : nullptr;
}

Value slotValue(SessionState& session, const Object& object, const PropertyPlace& place) {
  const kxArray* stored = session.heap.slot(object, place.slot);
  const bool hasDefault = place.property->definition->makeDefault != nullptr;
  return stored == nullptr && !hasDefault ? makeEmptyDouble() : matrix::sharedCopy(stored);
}

Value getProperty(const kxArray* object, kcos::NameRef name) {
  SessionState& session = requireSession();
  return atEdge([&] {
    return readProperty(session, requireObject(object), kcos::internal::makeInterned(name),
                        nullptr);
  });
}

Value getSlot(const kxArray* object, kcos::NameRef name) {
  SessionState& session = requireSession();
  Object& target = requireObject(object);
  return readPlace(session, target, placeOf(target, kcos::internal::makeInterned(name)));
}

void setSlot(const kxArray* object, kcos::NameRef name, Value value) {
  SessionState& session = requireSession();
  Object& target = requireObject(object);
  const PropertyPlace& place = placeOf(target, kcos::internal::makeInterned(name));
  if (place.property->hasSlot()) {
    const std::uint32_t slot = place.slot;
    preparePart(session, target, *place.property);
    session.heap.setSlot(target, slot, std::move(value));
  } else {
    writePlace(session, target, place, value.get());
  }
}

}  // namespace kv::host

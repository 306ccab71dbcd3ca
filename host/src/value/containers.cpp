// Cells, structures and object arrays. Their payload becomes part of the lifetime graph when the
// first element that refers to objects is set (`settleIn`), and not before: a cell of numbers
// belongs to no session and may be dropped on any thread.

#include <algorithm>
#include <memory>
#include <stdexcept>

#include "heap/Array.h"
#include "heap/Heap.h"
#include "kx/array.h"
#include "value/counts.h"

using kv::host::ContainerPayload;
using kv::host::elementCount;
using kv::host::Hold;
using kv::host::Object;
using kv::host::ObjectsPayload;
using kv::host::PayloadKind;
using kv::host::Slab;
using kv::host::StructPayload;

namespace {

template <class P, class... Args>
kxArray* make(kxClassID classId, std::size_t rows, std::size_t columns, Args&&... args) {
  auto payload = std::make_unique<P>(std::forward<Args>(args)...);
  auto* array = new kxArray(classId, rows, columns);
  array->putPayload(payload.release());
  return array;
}

/// Moves `value` into element `element` of a container that isn't shared yet.
void store(kxArray* container, kxArray*& element, kxArray* value) {
  matrix::ArrayPtr owned(value);
  if (owned != nullptr && kxGetReferenceCount(owned.get()) != 0) {
    owned = matrix::sharedCopy(owned.get());
  }
  if (owned != nullptr) {
    owned->moveInside();
    container->settleIn(owned->home());
  }
  matrix::destroyArray(std::exchange(element, owned.release()));
}

/// Index of a field; the number of fields where there is none of that name.
std::size_t fieldIndex(const StructPayload& payload, std::string_view field) noexcept {
  return static_cast<std::size_t>(std::find(payload.fields.begin(), payload.fields.end(), field) -
                                  payload.fields.begin());
}

const StructPayload& structOf(const kxArray* array) noexcept {
  return static_cast<const StructPayload&>(*array->payload);
}

}  // namespace

kxArray* kxCreateCellMatrix(std::size_t rows, std::size_t columns) {
  return make<ContainerPayload>(kxCELL_CLASS, rows, columns, PayloadKind::Cell,
                                elementCount(rows, columns));
}

const kxArray* kxGetCell(const kxArray* array, std::size_t index) noexcept {
  if (kxGetClassID(array) != kxCELL_CLASS || index >= array->elementCount()) {
    return nullptr;
  }
  return static_cast<const ContainerPayload&>(*array->payload).elements[index];
}

void kxSetCell(kxArray* array, std::size_t index, kxArray* value) {
  store(array, static_cast<ContainerPayload&>(*array->payload).elements[index], value);
}

kxArray* kxCreateStructMatrix(std::size_t rows, std::size_t columns,
                              std::span<const std::string_view> fields) {
  return make<StructPayload>(kxSTRUCT_CLASS, rows, columns, elementCount(rows, columns),
                             std::vector<std::string>(fields.begin(), fields.end()));
}

std::size_t kxGetNumberOfFields(const kxArray* array) noexcept {
  return structOf(array).fields.size();
}

std::string_view kxGetFieldName(const kxArray* array, std::size_t field) noexcept {
  return structOf(array).fields[field];
}

const kxArray* kxGetField(const kxArray* array, std::size_t index,
                          std::string_view field) noexcept {
  const StructPayload& payload = structOf(array);
  const std::size_t at = fieldIndex(payload, field);
  const std::size_t fieldCount = payload.fields.size();
  return at == fieldCount ? nullptr : payload.elements[index * fieldCount + at];
}

void kxSetField(kxArray* array, std::size_t index, std::string_view field, kxArray* value) {
  auto& payload = static_cast<StructPayload&>(*array->payload);
  const std::size_t at = fieldIndex(payload, field);
  if (at == payload.fields.size()) {
    const matrix::ArrayPtr dropped(value);
    throw std::logic_error("the structure has no field " + std::string(field));
  }
  store(array, payload.elements[index * payload.fields.size() + at], value);
}

void kxSetDimensions(kxArray* array, std::span<const std::size_t> allDimensions) {
  constexpr std::size_t kPointer = sizeof(kxArray*);
  const std::span<const std::size_t> dimensions = kv::host::trimmed(allDimensions);
  const std::size_t columns = kv::host::columnCount(dimensions, kPointer);
  const bool isAlone = array->form == kxArray::Form::Payload &&
                       array->payload->arrays.load(std::memory_order_relaxed) == 1;
  if (!isAlone || dimensions[0] * columns != array->elementCount()) {
    throw std::logic_error("these dimensions can't be given to the array");
  }
  array->extents = {dimensions[0], columns};
  array->payload->dimensions.clear();
  if (dimensions.size() > 2) {
    array->payload->dimensions.assign(dimensions.begin(), dimensions.end());
  }
}

namespace kcos {

kxArray* omCreateKCOSScalar(const COSInterfacePtr& object) {
  if (object.get() == nullptr) {
    return nullptr;
  }
  auto* array = new kxArray(kxOBJECT_CLASS, 1, 1);
  array->putObject(Object::of(object.get()));
  return array;
}

kxArray* omCreateKCOSMatrix(std::size_t rows, std::size_t columns, COSInternedBase classKey) {
  const std::size_t count = elementCount(rows, columns);
  if (count > 1) {
    return make<ObjectsPayload>(kxOBJECT_CLASS, rows, columns, count, classKey);
  }
  auto* array = new kxArray(kxOBJECT_CLASS, rows, columns);
  array->bareClass = classKey.id();
  return array;
}

void omSetArrayElement(kxArray* array, std::size_t index, COSInterface* element) {
  Object* object = Object::of(element);
  if (array->form != kxArray::Form::Payload) {
    array->setScalarObject(object);
    return;
  }
  if (object != nullptr) {
    object->addHold(Hold::Inside);
    array->settleIn(Slab::of(*object).queue);
  }
  Object*& place = static_cast<ObjectsPayload&>(*array->payload).objects[index];
  if (Object* old = std::exchange(place, object)) {
    old->removeHold(Hold::Inside);
  }
}

COSInterfacePtr omGetArrayElement(const kxArray* array, std::size_t index) {
  Object* object = nullptr;
  if (omIsKCOS(array) && index < array->elementCount()) {
    if (array->form == kxArray::Form::Object) {
      object = array->object;
    } else if (array->form == kxArray::Form::Payload) {
      object = static_cast<const ObjectsPayload&>(*array->payload).objects[index];
    }
  }
  return COSInterfacePtr(object, COSReferenceType::Strong);
}

bool omIsKCOS(const kxArray* array) noexcept {
  return array != nullptr && array->classId() == kxOBJECT_CLASS;
}

}  // namespace kcos

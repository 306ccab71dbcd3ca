// Saving walks values depth first on an explicit stack, because a value must come after what it
// holds, and objects breadth first through a queue, because they may form cycles and chains of any
// length. A value that is shared is written once and referred to; but a file whose shared values
// would expand beyond what a load accepts is written with copies instead, so that every file that
// is written can be read.

#include "save/GraphWriter.h"

#include <algorithm>
#include <string>

#include "heap/Array.h"
#include "heap/FunctionValue.h"
#include "kv/host/errors.h"
#include "session/SessionState.h"
#include "session/instances.h"
#include "session/objects.h"
#include "session/properties.h"

namespace kv::host {

namespace {

using namespace format;

/// Values of at least this size are written once.
constexpr std::size_t kSharedBytes = 256;

[[noreturn]] void refuse(const ClassRecord& record, const char* reason) {
  raise("KALVEX:save:NotSaveable", {std::string(record.getName()), reason});
}

bool isContainer(const kxArray* value) {
  return value->classId() == kxCELL_CLASS || value->classId() == kxSTRUCT_CLASS ||
         value->classId() == kxOBJECT_CLASS;
}

std::size_t elementCount(const kxArray* container) {
  const std::size_t fields =
      container->classId() == kxSTRUCT_CLASS ? kxGetNumberOfFields(container) : 1;
  return kxGetNumberOfElements(container) * fields;
}

/// Element `index` of a container, as a separate value; null where there is none. A structure's
/// come field by field, as in its payload.
Value elementAt(const kxArray* container, std::size_t index) {
  if (container->classId() == kxOBJECT_CLASS) {
    return matrix::from_kalvex(kcos::omCreateKCOSScalar(kcos::omGetArrayElement(container, index)));
  }
  return matrix::sharedCopy(
      static_cast<const ContainerPayload&>(*container->payload).elements[index]);
}

}  // namespace

Sections GraphWriter::write(const kxArray* root) {
  file_.setRoot(add(root));
  for (std::size_t i = 0; i < queue_.size(); ++i) {
    Object& object = *Object::of(queue_[i].get());
    writeObject(object, objects_.at(&object));
  }
  return file_.take();
}

/// The payload by which a value is recognised; null for one that is written each time.
const Payload* GraphWriter::identityOf(const kxArray* value) const {
  const bool isWorth = value->form == kxArray::Form::Payload && value->payload != unshared_ &&
                       (isContainer(value) || value->payload->bytes >= kSharedBytes);
  return isWorth ? value->payload : nullptr;
}

/// Adds a value that a load copies, so that a file counts each copy.
Reference GraphWriter::addUnshared(const kxArray* value) {
  unshared_ = value->form == kxArray::Form::Payload ? value->payload : nullptr;
  const Reference made = add(value);
  unshared_ = nullptr;
  return made;
}

Reference GraphWriter::add(const kxArray* value) {
  const std::size_t floor = stack_.size();
  if (const std::optional<Reference> known = referenceOf(value)) {
    return *known;
  }
  begin(value);
  while (true) {
    Pending& top = stack_.back();
    if (top.elements.size() < elementCount(top.value.get())) {
      const Value element = elementAt(top.value.get(), top.elements.size());
      if (const std::optional<Reference> known = referenceOf(element.get())) {
        top.elements.push_back(*known);
      } else {
        begin(element.get());
      }
      continue;
    }
    Pending done = std::move(top);
    stack_.pop_back();
    const Reference made = finish(std::move(done));
    if (stack_.size() == floor) {
      return made;
    }
    stack_.back().elements.push_back(made);
  }
}

/// Whether a value may refer to one that was written before. Where nested values would expand to
/// more than a load accepts, they are written again, and the file is as long as its expansion.
bool GraphWriter::mayShare(const kxArray* value, Reference known) {
  const std::size_t expansion = file_.expansionAt(known);
  if (stack_.empty() || expansion <= kMaxExpansion - sharedExpansion_) {
    sharedExpansion_ += stack_.empty() ? 0 : expansion;
    return true;
  }
  rewrittenExpansion_ += expansion;
  if (rewrittenExpansion_ > kMaxRewritten) {
    FileBuilder::refuseExpansion(value);
  }
  return false;
}

/// Empty for what needs its elements or a record first.
std::optional<Reference> GraphWriter::referenceOf(const kxArray* value) {
  if (value == nullptr) {
    return Reference();
  }
  if (Object* object = scalarObject(value)) {
    return referenceOf(*object);
  }
  const Payload* identity = identityOf(value);
  if (const auto known = payloads_.find(identity);
      known != payloads_.end() && mayShare(value, known->second.reference)) {
    return known->second.reference;
  }
  if (isContainer(value)) {
    return std::nullopt;
  }
  Reference made;
  if (const FunctionValue* function = functionValue(value)) {
    made = file_.addFunction(function->name.text(),
                             function->body != nullptr || function->isPlaceholder);
  } else {
    made = file_.addPlain(value);
  }
  if (identity != nullptr) {
    payloads_.try_emplace(identity, matrix::sharedCopy(value), made);
  }
  return made;
}

std::optional<Reference> GraphWriter::referenceOf(Object& object) {
  if (const auto known = objects_.find(&object); known != objects_.end()) {
    return Reference::object(known->second);
  }
  if (object.isDeleted()) {
    raise("KALVEX:class:InvalidHandle");
  }
  if (object.isUnderConstruction()) {
    refuse(classOf(object), "it is still being made");
  }
  if (beginRecord(object)) {
    return std::nullopt;
  }
  return enqueue(object);
}

Reference GraphWriter::enqueue(Object& object) {
  const std::uint32_t index = file_.addObject();
  objects_.emplace(&object, index);
  queue_.emplace_back(&object, kcos::COSReferenceType::Strong);
  return Reference::object(index);
}

/// Begins a value for which `referenceOf` returned nothing; the record of an object has begun
/// there.
void GraphWriter::begin(const kxArray* value) {
  if (scalarObject(value) == nullptr) {
    stack_.push_back({matrix::sharedCopy(value), nullptr, {}});
  }
  if (stack_.size() >= kMaxNesting) {
    raise("KALVEX:save:NotSaveable",
          {kxGetClassName(value),
           "values are nested more than " + std::to_string(kMaxNesting) + " deep"});
  }
}

/// Result: false, and nothing begun, for a class without a record form.
bool GraphWriter::beginRecord(Object& object) {
  const ClassRecord* native = classOf(object).linked().native;
  if (native == nullptr) {
    return false;
  }
  if (std::ranges::any_of(stack_, [&](const Pending& at) { return at.recordOf == &object; })) {
    refuse(classOf(object), "its record leads back to itself");
  }
  kxArray* record = nullptr;
  kcos::COSInternedBase type;
  const bool hasRecord = native->info()->customSave(
      kcos::COSInterfacePtr(&object, kcos::COSReferenceType::Strong), record, type);
  Value owned = matrix::from_kalvex(record);
  if (hasRecord) {
    if (kxGetClassID(owned.get()) != kxSTRUCT_CLASS) {
      refuse(classOf(object), "its record isn't a structure");
    }
    stack_.push_back({std::move(owned), &object, {}});
  }
  return hasRecord;
}

Reference GraphWriter::finish(Pending pending) {
  const Reference made = file_.addContainer(pending.value.get(), pending.elements);
  if (pending.recordOf == nullptr) {
    if (const Payload* identity = identityOf(pending.value.get())) {
      payloads_.try_emplace(identity, std::move(pending.value), made);
    }
    return made;
  }
  Object& object = *pending.recordOf;
  const std::uint32_t index = file_.addObject();
  objects_.emplace(&object, index);
  recorded_.emplace_back(&object, kcos::COSReferenceType::Strong);
  const std::string className(classOf(object).getName());
  file_.setObject(index, file_.addShape(className, {}), ObjectForm::Record, {made});
  return Reference::object(index);
}

void GraphWriter::writeObject(Object& object, std::uint32_t index) {
  const Shape& shape = shapeOf(object);
  const bool isTakenApart = shape.savedForm != nullptr && shape.savedForm->restore != nullptr;
  if (session_.heap.nativeValue(object) != nullptr && shape.savedForm == nullptr) {
    refuse(classOf(object), "it holds something that lives in this process only");
  }
  std::vector<Reference> references;
  for (const PropertyPlace& place : shape.places) {
    const Value value = readPlace(session_, object, place);
    const bool isCopied = isTakenApart && place.property->hasSlot() && value != nullptr;
    references.push_back(isCopied ? addUnshared(value.get()) : add(value.get()));
  }
  if (shape.savedForm == nullptr || shape.savedForm->save == nullptr) {
    file_.setObject(index, shape.index, ObjectForm::Properties, references);
    return;
  }
  const Value self = arrayOf(object);
  references.push_back(add(shape.savedForm->save(self.get()).get()));
  file_.setObject(index, shape.index, ObjectForm::PropertiesAndSaved, references);
}

const GraphWriter::Shape& GraphWriter::shapeOf(const Object& object) {
  const auto known = shapes_.find(&object.objectClass());
  if (known != shapes_.end()) {
    return known->second;
  }
  const ClassRecord& record = classOf(object);
  Shape shape{.index = 0, .places = storedProperties(record), .savedForm = savedFormOf(record)};
  std::vector<std::string_view> names;
  for (const PropertyPlace& place : shape.places) {
    names.push_back(place.property->name.text());
  }
  shape.index = file_.addShape(record.getName(), names);
  return shapes_.emplace(&object.objectClass(), std::move(shape)).first->second;
}

}  // namespace kv::host

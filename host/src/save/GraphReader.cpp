// Loading is the part of the host that hostile bytes reach, so it has its checks in three layers:
// Container (lengths and checksums), FileTables (every count and reference), and this walk, which
// bounds what objects copy and leave out, and reports what setters refuse as a fault of the file.
// Cycles need no care: objects are empty shells first and are filled afterwards, through the
// setters of their properties, and no user's code runs.

#include "save/GraphReader.h"

#include <algorithm>
#include <array>
#include <string>

#include "heap/Array.h"
#include "heap/FunctionValue.h"
#include "kv/host/errors.h"
#include "name/names.h"
#include "save/plainValues.h"
#include "session/SessionState.h"
#include "session/edge.h"
#include "session/instances.h"
#include "session/objects.h"
#include "session/properties.h"

namespace kv::host {

namespace {

using namespace format;
using Torvane::KException::KExceptionEnvelope;

/// What `customLoad` of a class raises about the contents of a record.
constexpr std::array<std::string_view, 2> kConversionErrors{
    "KALVEX:validateattributes:invalidType", "KALVEX:string:MustBeStringScalarOrCharacterVector"};

/// What an object has for a property that isn't set, in its slot or its native part.
constexpr std::size_t kPropertyBytes = 24;
constexpr std::size_t kLeftOutForFree = 1'000'000;

[[noreturn]] void refuseObject(std::size_t index, const std::string& reason) {
  refuseFile(kSectionTags[static_cast<std::size_t>(Section::Objects)],
             FileTables::objectOffset(index), reason);
}

/// Runs `body`, whose errors are about the contents of the file: they become refusals of the file;
/// `what` names what is done to the object. Errors with other ids aren't the file's fault, and
/// neither is being out of memory.
template <class What, class Body>
void refusing(std::size_t index, What&& what, Body&& body) {
  try {
    atEdge(std::forward<Body>(body));
  } catch (const KExceptionEnvelope& error) {
    const ErrorRecord record = errorRecord(error);
    if (!record.identifier.starts_with("KALVEX:") || record.identifier == "KALVEX:OutOfMemory") {
      throw;
    }
    refuseObject(index, what() + ": " + record.message);
  }
}

}  // namespace

GraphReader::GraphReader(SessionState& session, const FileTables& file, bool trusted)
    : session_(session),
      file_(file),
      trusted_(trusted),
      copies_(file.size()),
      objects_(file.objectCount()),
      values_(file.valueCount()),
      isNeeded_(file.valueCount()),
      isReached_(file.valueCount()),
      isQueued_(file.objectCount()) {}

Value GraphReader::read() {
  Value root = make(file_.root());
  for (std::size_t i = 0; i < queue_.size(); ++i) {
    if (!isRecord(queue_[i])) {
      fill(queue_[i]);
    }
  }
  finish();
  validate();
  return root;
}

Value GraphReader::make(Reference reference) {
  need(reference);
  makeNeeded();
  reach(reference);
  return take(reference);
}

/// Notes the values that `reference` needs, those of records included.
void GraphReader::need(Reference reference) {
  open_.push_back(reference);
  while (!open_.empty()) {
    Reference at = open_.back();
    open_.pop_back();
    if (at.isObject() && isRecord(at.index())) {
      at = recordOf(at.index());
    }
    if (!at.isNull() && !at.isObject() && !isNeeded_[at.index()]) {
      isNeeded_[at.index()] = true;
      needed_.push_back(at.index());
      file_.forEachReference(file_.value(at.index()),
                             [&](Reference inner) { open_.push_back(inner); });
    }
  }
}

void GraphReader::makeNeeded() {
  std::ranges::sort(needed_);
  for (const std::uint32_t index : needed_) {
    values_[index] = makeValue(index);
  }
  needed_.clear();
}

Value GraphReader::makeValue(std::uint32_t index) {
  const SavedValue value = file_.value(index);
  switch (value.classId()) {
    case kxCELL_CLASS:
    case kxSTRUCT_CLASS:
    case kxOBJECT_CLASS:
      return makeContainer(value, index);
    case kxSTRING_CLASS:
      return makeTexts(value);
    case kxFUNCTION_CLASS:
      return makeFunctionHandle(FunctionValue{
          .name = interned(file_.name(static_cast<std::uint32_t>(value.entry.payload))),
          .isUntrusted = !trusted_,
          .isPlaceholder = value.entry.flags == kPlaceholder});
    default:
      return makeNumbers(value);
  }
}

/// Counts a name that is in the file once and in many values.
void GraphReader::countName(std::string_view name, std::uint32_t value) {
  if (name.size() > kNameForFree && !copies_.take(name.size())) {
    refuseFile(kSectionTags[static_cast<std::size_t>(Section::Values)], value * sizeof(ValueEntry),
               "many values have the same long names");
  }
}

Value GraphReader::makeContainer(const SavedValue& value, std::uint32_t index) {
  const std::size_t rows = value.dimensions[0];
  const std::size_t columns = columnsOf(value);
  const ReferenceRange range = referencesOf(value);
  if (value.classId() == kxOBJECT_CLASS) {
    countName(file_.name(value.number(0)), index);
    const std::string className(file_.name(value.number(0)));
    if (session_.classes.find(interned(className)) == nullptr) {
      raise("KALVEX:load:UnknownClass", {className});
    }
    Value array = matrix::from_kalvex(kcos::omCreateKCOSMatrix(rows, columns, interned(className)));
    for (std::size_t i = 0; i < range.count; ++i) {
      if (const Reference at = range.at(value, i); !at.isNull()) {
        Object& object = objectOf(at.index());
        if (!classOf(object).isA(interned(className))) {
          refuseObject(at.index(), "an object of class " + std::string(classOf(object).getName()) +
                                       " is among those of class " + className);
        }
        kcos::omSetArrayElement(array.get(), i, &object);
      }
    }
    return array;
  }
  std::vector<std::string_view> fields;
  for (std::size_t i = 0; value.classId() == kxSTRUCT_CLASS && i < value.number(0); ++i) {
    fields.push_back(file_.name(value.number(1 + i)));
    countName(fields.back(), index);
  }
  Value array = matrix::from_kalvex(value.classId() == kxCELL_CLASS
                                        ? kxCreateCellMatrix(rows, columns)
                                        : kxCreateStructMatrix(rows, columns, fields));
  kxSetDimensions(array.get(), dimensionsOf(value));
  for (std::size_t i = 0; i < range.count; ++i) {  // a structure's payload is laid out as a cell's
    kxSetCell(array.get(), i, take(range.at(value, i)).release());
  }
  return array;
}

/// The value of a reference, which has been made.
Value GraphReader::take(Reference reference) {
  if (reference.isNull()) {
    return nullptr;
  }
  return reference.isObject() ? arrayOf(objectOf(reference.index()))
                              : matrix::sharedCopy(values_[reference.index()].get());
}

bool GraphReader::isRecord(std::uint32_t index) const {
  return file_.object(index).form == static_cast<std::uint32_t>(ObjectForm::Record);
}

Reference GraphReader::recordOf(std::uint32_t index) const {
  return file_.reference(file_.object(index).firstReference);
}

/// The object, made now if it isn't yet: a shell, or what its class makes of its record.
Object& GraphReader::objectOf(std::uint32_t index) {
  if (objects_[index].get() == nullptr) {
    makeObject(index);
  }
  return *Object::of(objects_[index].get());
}

void GraphReader::makeObject(std::uint32_t index) {
  const Shape& shape = shapeOf(index);
  if (isRecord(index)) {
    objects_[index] = makeFromRecord(index);
  } else {
    countLeftOut(index);
    objects_[index] = makeShell(session_, *shape.record);
    const bool hasNative = shape.record->linked().native != nullptr;
    if (hasNative && Object::of(objects_[index].get())->instanceData() == nullptr) {
      refuseObject(
          index, "an object of class " + std::string(shape.record->getName()) + " can't be loaded");
    }
  }
  if (!trusted_) {
    Object::of(objects_[index].get())->markUntrusted();
  }
}

/// A class may have got properties since the file was saved, and they take memory that no bytes in
/// the file pay for. A file of objects that leave out nearly all is refused.
void GraphReader::countLeftOut(std::uint32_t index) {
  leftOutBytes_ += shapeOf(index).leftOut * kPropertyBytes;
  if (leftOutBytes_ > std::max(file_.size(), kLeftOutForFree)) {
    refuseObject(index, "the objects lack most properties of their classes");
  }
}

kcos::COSInterfacePtr GraphReader::makeFromRecord(std::uint32_t index) {
  const ClassRecord& record = *shapeOf(index).record;
  countCopy(recordOf(index), index);
  kcos::COSInterfacePtr made;
  try {
    atEdge([&] {
      const Value value = take(recordOf(index));
      if (record.isNative() && kxIsScalar(value.get())) {
        record.info()->customLoad(made, value.get(), interned("any"));
      }
    });
  } catch (const KExceptionEnvelope& error) {
    // The file is responsible for the record; all other errors come from calls of the class.
    const ErrorRecord cause = errorRecord(error);
    if (std::ranges::find(kConversionErrors, cause.identifier) != kConversionErrors.end()) {
      refuseObject(index, cause.message);
    }
    throw;
  }
  if (made.get() == nullptr) {
    refuseObject(index, "class " + std::string(record.getName()) + " makes no object of a record");
  }
  return {made.get(), kcos::COSReferenceType::Strong};
}

/// The class of an object and where its properties are, looked up once.
const GraphReader::Shape& GraphReader::shapeOf(std::uint32_t index) {
  const std::uint32_t shapeIndex = file_.object(index).shape;
  if (const auto known = shapes_.find(shapeIndex); known != shapes_.end()) {
    return known->second;
  }
  const SavedShape& saved = file_.shape(file_.object(index));
  const std::string className(file_.name(saved.className));
  ClassRecord* record = session_.classes.find(interned(className));
  if (record == nullptr) {
    raise("KALVEX:load:UnknownClass", {className});
  }
  const LinkedClass& linked = record->linked();
  if (!linked.missing.empty()) {
    raise("KALVEX:load:UnknownClass", {std::string(linked.missing.text())});
  }
  if (linked.isAbstract) {
    refuseObject(index, "class " + className + " is abstract");
  }
  Shape shape{.record = record, .savedForm = savedFormOf(*record)};
  for (const std::uint32_t name : saved.properties) {
    const PropertyPlace* place = linked.properties.find(interned(file_.name(name)));
    if (place == nullptr || place->property->flags != kcos::COSPropT::kStored) {
      refuseObject(
          index, "class " + className + " has no stored property " + std::string(file_.name(name)));
    }
    shape.places.push_back(*place);
  }
  shape.leftOut = storedProperties(*record).size() - shape.places.size();
  return shapes_.emplace(shapeIndex, std::move(shape)).first->second;
}

/// Queues the objects that a value in use refers to.
void GraphReader::reach(Reference reference) {
  open_.push_back(reference);
  while (!open_.empty()) {
    const Reference at = open_.back();
    open_.pop_back();
    if (at.isNull()) {
      continue;
    }
    if (at.isObject()) {
      reachObject(at.index());
    } else if (!isReached_[at.index()]) {
      isReached_[at.index()] = true;
      file_.forEachReference(file_.value(at.index()),
                             [&](Reference inner) { open_.push_back(inner); });
    }
  }
}

void GraphReader::reachObject(std::uint32_t index) {
  if (isQueued_[index]) {
    return;
  }
  isQueued_[index] = true;
  const Object& object = objectOf(index);
  queue_.push_back(index);
  if (isRecord(index)) {
    file_.forEachReference(file_.value(recordOf(index).index()), [&](Reference inner) {
      if (!inner.isObject() || Heap::hasEdge(object, objectOf(inner.index()))) {
        open_.push_back(inner);
      }
    });
  }
}

/// Counts what an object copies of a value.
void GraphReader::countCopy(Reference reference, std::uint32_t object) {
  if (!copies_.take(file_.copiedBytes(reference))) {
    refuseObject(object, "many objects copy the same values");
  }
}

void GraphReader::fill(std::uint32_t index) {
  const ObjectEntry entry = file_.object(index);
  const Shape& shape = shapeOf(index);
  std::uint64_t next = entry.firstReference;
  for (const PropertyPlace& place : shape.places) {
    const Reference reference = file_.reference(next++);
    const Value value = make(reference);
    const auto what = [&] {
      return "property " + std::string(place.property->name.text()) + " of class " +
             std::string(shape.record->getName());
    };
    refusing(index, what, [&] { writePlace(session_, objectOf(index), place, value.get()); });
    if (file_.copiedBytes(reference) == 0) {
      continue;
    }
    const bool isCopied =
        place.property->hasSlot() ? shape.isTakenApart() : !sharesArray(objectOf(index), place);
    if (isCopied) {
      countCopy(reference, index);
    }
  }
  const bool hasSaved = entry.form == static_cast<std::uint32_t>(ObjectForm::PropertiesAndSaved);
  if (hasSaved && shape.savedForm == nullptr) {
    refuseObject(index, "class " + std::string(shape.record->getName()) +
                            " saves nothing besides its properties");
  }
  if (hasSaved) {
    countCopy(file_.reference(next), index);
  }
  if (shape.savedForm != nullptr) {  // also where the file has nothing saved
    saved_.emplace_back(index, hasSaved ? make(file_.reference(next)) : nullptr);
  }
}

/// Restores what isn't a property of the objects, and notifies their classes.
void GraphReader::finish() {
  for (const auto& [index, value] : saved_) {
    const Shape& shape = shapeOf(index);
    const Value self = arrayOf(objectOf(index));
    const auto what = [&] { return "an object of class " + std::string(shape.record->getName()); };
    refusing(index, what, [&] {
      if (shape.savedForm->restore != nullptr) {
        shape.savedForm->restore(self.get(), value.get());
      }
    });
  }
  for (const std::uint32_t index : queue_) {
    if (!isRecord(index)) {
      refusing(
          index, [] { return std::string("the object"); }, [&] { notifyLoaded(objectOf(index)); });
    }
  }
}

void GraphReader::validate() const {
  std::vector<Value> objects;
  std::vector<const kxArray*> views;
  for (const std::uint32_t index : queue_) {
    objects.push_back(arrayOf(*Object::of(objects_[index].get())));
    views.push_back(objects.back().get());
  }
  for (const LoadValidator& validator : session_.loadValidators) {
    if (const std::optional<LoadRefusal> refusal = validator(views)) {
      refuseObject(queue_[refusal->object], refusal->reason);
    }
  }
}

}  // namespace kv::host

#include "session/instances.h"

#include "session/SessionState.h"
#include "session/construction.h"
#include "session/objects.h"
#include "session/properties.h"

namespace kv::host {

std::vector<PropertyPlace> storedProperties(const ClassRecord& record) {
  std::vector<PropertyPlace> stored;
  for (const ClassRecord* part : record.linked().lineage) {
    for (const Property& property : part->contents().properties) {
      const PropertyPlace* place = record.linked().properties.find(property.name);
      if (property.flags == kcos::COSPropT::kStored && place->property == &property) {
        stored.push_back(*place);
      }
    }
  }
  return stored;
}

kcos::COSInterfacePtr makeShell(SessionState& session, ClassRecord& record) {
  kcos::COSInterfacePtr object = newInstance(session, record);
  constructShell(session, *Object::of(object.get()));
  return object;
}

void notifyLoaded(Object& object) {
  if (const ClassRecord* native = classOf(object).linked().native) {
    native->info()->instanceLoaded(&object);
  }
}

const SavedForm* savedFormOf(const ClassRecord& record) {
  const auto& lineage = record.linked().lineage;
  for (auto part = lineage.rbegin(); part != lineage.rend(); ++part) {
    const auto& definition = (*part)->contents().definition;
    if (definition != nullptr && definition->savedForm) {
      return &*definition->savedForm;
    }
  }
  return nullptr;
}

Value loadInstance(SessionState& session, ClassRecord& record,
                   std::span<const std::pair<std::string, const kxArray*>> properties) {
  const kcos::COSInterfacePtr object = makeShell(session, record);
  Value loaded = arrayOf(*Object::of(object.get()));
  for (const auto& [name, value] : properties) {
    setSlot(loaded.get(), kcos::NameRef::of(name), matrix::sharedCopy(value));
  }
  notifyLoaded(*Object::of(object.get()));
  return loaded;
}

Value copyInstance(SessionState& session, Object& object) {
  auto& record = static_cast<ClassRecord&>(object.objectClass());
  const kcos::COSInterfacePtr made = makeShell(session, record);
  for (const PropertyPlace& place : storedProperties(record)) {
    const Value value = readPlace(session, object, place);
    writePlace(session, *Object::of(made.get()), place, value.get());
  }
  if (object.isUntrusted()) {
    Object::of(made.get())->markUntrusted();
  }
  return arrayOf(*Object::of(made.get()));
}

}  // namespace kv::host
